#include "orvelle/BoostCommands.h"

#include <csignal>
#include <memory>
#include <optional>

#include "orvelle/DeviceRouter.h"
#include "orvelle/EngineError.h"
#include "orvelle/HAL.h"
#include "orvelle/NumberText.h"

namespace orvelle {

namespace {

bool isAnotherBoosting(const CommandHost& host) {
  const auto process = host.undoKeeper.boostingProcess();
  if (process) {
    host.console.printError(std::string(EngineError::boostingAlready(*process).what()) + "\n");
  }
  return process.has_value();
}

/// What `--gain` says, or `defaultGain` where it is no number.
float gainOf(const CommandLine& commandLine, float defaultGain) {
  return parseFloat(commandLine.value("--gain").value_or("")).value_or(defaultGain);
}

std::string gainText(float gain) {
  return shortestText(gain) + " (≈" + decibelText(gain) + " dB)";
}

/// Whether the boost runs now. If it does not, the user knows why and has the system back.
bool startEngine(BoostEngine& engine, Console& console, const std::string& loopbackUID,
                 const std::string& outputUID) {
  try {
    engine.start(loopbackUID, outputUID);
    return true;
  } catch (const EngineError& error) {
    console.printError("Boost failed: " + std::string(error.what()) + "\n");
  }
  engine.removeDefaultGuard();
  engine.teardownAggregate();
  engine.stop(true);
  return false;
}

/// Called before the first step: a Ctrl-C in the middle of the start would end the process with the
/// output raised to full volume. It waits until the boost runs, and then ends it properly. The
/// engine must live until the main queue has ended.
void stopOnInterrupt(BoostEngine& engine, const EngineHost& host) {
  // A reader of the meter lines that goes away must not end the process in that state either.
  host.queue.onSignal(SIGPIPE, [] {});
  host.queue.onSignal(SIGINT, [&engine, &console = host.console, &queue = host.queue] {
    engine.stop(true);
    console.print("\nStopped, default output restored.");
    queue.quit(0);
  });
}

}  // namespace

int boostCommand(const CommandLine& commandLine, const CommandHost& host) {
  const std::optional<std::string> loopbackUID = commandLine.value("--input");
  if (!loopbackUID) {
    host.console.print("usage: orvelle boost --input <loopback-uid> [--output <uid>] [--gain <x>]");
    return 2;
  }
  const auto hardware = openHardware(host);
  if (!hardware || isAnotherBoosting(host)) {
    return 1;
  }
  std::optional<std::string> outputUID = commandLine.value("--output");
  if (!outputUID) {
    const HAL hal(*hardware);
    outputUID = hal.describe(hal.defaultOutput()).uid;
  }
  constexpr float defaultGain = 1.5F;
  return runBoost({*hardware, host.queue, host.clock, host.console, host.undoKeeper}, *loopbackUID,
                  *outputUID, gainOf(commandLine, defaultGain));
}

int runBoost(const EngineHost& host, const std::string& loopbackUID, const std::string& outputUID,
             float gain) {
  BoostEngine engine(host);
  engine.gain = gain;
  stopOnInterrupt(engine, host);
  if (!startEngine(engine, host.console, loopbackUID, outputUID)) {
    return 1;
  }
  host.console.print("Boost running at gain " + gainText(gain) + ".");
  host.console.print("Loopback: " + loopbackUID + "\nOutput:   " + outputUID + "\nCtrl-C to stop.");
  return host.queue.run();
}

int autoCommand(const CommandLine& commandLine, const CommandHost& host) {
  const auto hardware = openHardware(host);
  if (!hardware || isAnotherBoosting(host)) {
    return 1;
  }
  const std::string loopbackUID =
      commandLine.value("--input").value_or(DeviceRouter::loopbackUID(HAL(*hardware)));
  constexpr float defaultGain = 3.0F;
  return runAuto({*hardware, host.queue, host.clock, host.console, host.undoKeeper}, loopbackUID,
                 gainOf(commandLine, defaultGain));
}

int runAuto(const EngineHost& host, const std::string& loopbackUID, float gain) {
  const auto output = DeviceRouter::preferredOutput(HAL(host.hardware));
  if (!output) {
    host.console.printError("No real output device found.\n");
    return 1;
  }
  BoostEngine engine(host);
  engine.gain = gain;
  stopOnInterrupt(engine, host);
  if (!startEngine(engine, host.console, loopbackUID, output->uid)) {
    return 1;
  }
  DeviceRouter router(host, engine);
  router.start();
  host.console.print("Auto-boost running at gain " + gainText(gain) + ".");
  host.console.print("Output follows device changes. Current: " + output->name + " [" +
                     std::string(transportName(output->transportType)) + "]");
  host.console.print("Ctrl-C to stop.");
  return host.queue.run();
}

}  // namespace orvelle
