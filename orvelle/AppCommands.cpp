#include "orvelle/AppCommands.h"

#include <csignal>
#include <optional>
#include <vector>

#include "orvelle/DeviceRouter.h"
#include "orvelle/NumberText.h"
#include "orvelle/ProcessAudio.h"
#include "orvelle/ProcessTapEngine.h"

namespace orvelle {

namespace {

constexpr const char* kAppvolUsage =
    "usage: orvelle appvol --pid <pid> --vol <0..3>  (get pid from 'orvelle apps')";

/// The output that `--output` names, else the preferred one; empty where there is none.
std::string outputUIDOf(const CommandLine& commandLine, AudioHardware& hardware) {
  if (const auto named = commandLine.value("--output")) {
    return *named;
  }
  const auto preferred = DeviceRouter::preferredOutput(HAL(hardware));
  return preferred ? preferred->uid : "";
}

/// Called before the first step: a Ctrl-C in the middle of the start could otherwise leave the
/// application silent. It waits until the tap runs, and then ends it properly. The engine must live
/// until the main queue has ended.
void stopOnInterrupt(ProcessTapEngine& engine, const EngineHost& host) {
  // A reader of the meter lines that goes away must not end the process in that state either.
  host.queue.onSignal(SIGPIPE, [] {});
  host.queue.onSignal(SIGINT, [&engine, &console = host.console, &queue = host.queue] {
    engine.stop();
    console.print("\nStopped.");
    queue.quit(0);
  });
}

}  // namespace

int appsCommand(const CommandLine& /*commandLine*/, const CommandHost& host) {
  const auto hardware = openHardware(host);
  if (!hardware) {
    return 1;
  }
  const ProcessAudio processAudio(*hardware);
  const std::size_t total = processAudio.processObjectIDs().size();
  const std::vector<AudioProcessInfo> processes = processAudio.outputting();
  host.console.print("Audio processes (" + std::to_string(total) + " total, " +
                     std::to_string(processes.size()) + " playing now):\n");
  for (const auto& [name, process] : processAudio.sortedByName(processes, host.applicationNames)) {
    host.console.print("♪ " + name + "  (pid " + std::to_string(process.pid) + ")  " +
                       process.bundleID);
  }
  if (processes.empty()) {
    host.console.print("  (nothing playing — start some audio and re-run)");
  }
  return 0;
}

int appvolCommand(const CommandLine& commandLine, const CommandHost& host) {
  const auto pid = parseInteger(commandLine.value("--pid").value_or(""));
  if (!pid) {
    host.console.print(kAppvolUsage);
    return 2;
  }
  const auto hardware = openHardware(host);
  if (!hardware) {
    return 1;
  }
  const auto process = ProcessAudio(*hardware).object(*pid);
  if (!process) {
    host.console.printError("No audio process with pid " + std::to_string(*pid) + ".\n");
    return 1;
  }
  const float volume = parseFloat(commandLine.value("--vol").value_or("")).value_or(1.0F);
  return runAppVolume({*hardware, host.queue, host.clock, host.console, host.undoKeeper}, *pid,
                      *process, outputUIDOf(commandLine, *hardware), volume);
}

int runAppVolume(const EngineHost& host, std::int32_t pid, AudioObjectID processObjectID,
                 const std::string& outputUID, float volume) {
  ProcessTapEngine engine(host);
  engine.volume = volume;
  stopOnInterrupt(engine, host);
  try {
    engine.start(processObjectID, outputUID);
  } catch (const EngineError& error) {
    engine.teardown();
    host.console.printError("App-volume tap failed: " + std::string(error.what()) + "\n");
    return 1;
  }
  host.console.print("Tapping pid " + std::to_string(pid) + " at volume " + shortestText(volume) +
                     ". That app's audio now runs through Orvelle.");
  host.console.print("Ctrl-C to stop.");
  return host.queue.run();
}

}  // namespace orvelle
