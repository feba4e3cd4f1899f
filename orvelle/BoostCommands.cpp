#include "orvelle/BoostCommands.h"

#include <csignal>
#include <memory>
#include <optional>

#include "orvelle/EngineError.h"
#include "orvelle/HAL.h"
#include "orvelle/NumberText.h"

namespace orvelle {

namespace {

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

/// Takes effect once the main queue runs. The engine must live until that has ended.
void stopOnInterrupt(BoostEngine& engine, const EngineHost& host) {
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
  if (!hardware) {
    return 1;
  }
  std::optional<std::string> outputUID = commandLine.value("--output");
  if (!outputUID) {
    const HAL hal(*hardware);
    outputUID = hal.describe(hal.defaultOutput()).uid;
  }
  constexpr float defaultGain = 1.5F;
  const float gain = parseFloat(commandLine.value("--gain").value_or("")).value_or(defaultGain);
  return runBoost({*hardware, host.queue, host.clock, host.console}, *loopbackUID, *outputUID,
                  gain);
}

int runBoost(const EngineHost& host, const std::string& loopbackUID, const std::string& outputUID,
             float gain) {
  BoostEngine engine(host);
  engine.gain = gain;
  // Caught before the first step: a Ctrl-C in the middle of the start would end the process with
  // the output raised to full volume. It waits until the boost runs, and then ends it properly.
  stopOnInterrupt(engine, host);
  // A reader of the meter lines that goes away must not end the process in that state either.
  host.queue.onSignal(SIGPIPE, [] {});
  if (!startEngine(engine, host.console, loopbackUID, outputUID)) {
    return 1;
  }
  host.console.print("Boost running at gain " + gainText(gain) + ".");
  host.console.print("Loopback: " + loopbackUID + "\nOutput:   " + outputUID + "\nCtrl-C to stop.");
  return host.queue.run();
}

}  // namespace orvelle
