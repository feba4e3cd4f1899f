#include "orvelle/DeviceCommands.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/NumberText.h"

namespace orvelle {

namespace {

constexpr std::string_view kRateUsage = "usage: orvelle rate <device-uid> [44100|48000]";

/// Here every device with both directions counts as a loopback, be it a headset.
bool hasInputsAndOutputs(const AudioDeviceInfo& device) {
  return device.inputChannels >= 1 && device.outputChannels >= 1;
}

std::string tags(const AudioDeviceInfo& device) {
  std::string text;
  const auto append = [&text](const std::string& tag) { text += text.empty() ? tag : "  " + tag; };
  if (device.outputChannels >= 1) {
    append("out:" + std::to_string(device.outputChannels));
  }
  if (device.inputChannels >= 1) {
    append("in:" + std::to_string(device.inputChannels));
  }
  if (hasInputsAndOutputs(device)) {
    append("loopback");
  }
  return text;
}

std::string ratesAfterChange(const HAL& hal, Clock& clock, AudioObjectID device,
                             double requestedRate) {
  // Hardware takes a moment until it reports the rate that it now runs at.
  constexpr double settlingSeconds = 0.4;
  const bool isAccepted = hal.setNominalSampleRate(device, requestedRate) == kAudioHardwareNoError;
  clock.sleep(settlingSeconds);
  return "set " + wholeNumberText(requestedRate) + " Hz → " +
         (isAccepted ? "requested" : "failed") + "; now " +
         wholeNumberText(hal.nominalSampleRate(device)) + " Hz";
}

}  // namespace

int listCommand(const CommandLine& /*commandLine*/, const CommandHost& host) {
  const auto hardware = openHardware(host);
  if (!hardware) {
    return 1;
  }
  printDevices(HAL(*hardware), host.console);
  return 0;
}

int watchCommand(const CommandLine& /*commandLine*/, const CommandHost& host) {
  const auto hardware = openHardware(host);
  if (!hardware) {
    return 1;
  }
  return watchDefaultOutput(HAL(*hardware), host.console, host.queue);
}

int rateCommand(const CommandLine& commandLine, const CommandHost& host) {
  const std::optional<std::string> uid = commandLine.argument(2);
  if (!uid) {
    host.console.print(kRateUsage);
    return 2;
  }
  const auto hardware = openHardware(host);
  if (!hardware) {
    return 1;
  }
  const HAL hal(*hardware);
  const std::optional<AudioDeviceInfo> device = hal.device(*uid);
  if (!device) {
    host.console.print(kRateUsage);
    return 2;
  }
  if (const auto requestedRate = parseDouble(commandLine.argument(3).value_or(""))) {
    host.console.print(ratesAfterChange(hal, host.clock, device->id, *requestedRate));
  } else {
    host.console.print(device->name + ": " + wholeNumberText(hal.nominalSampleRate(device->id)) +
                       " Hz");
  }
  return 0;
}

void printDevices(const HAL& hal, Console& console) {
  std::vector<AudioDeviceInfo> devices = hal.allDevices();
  std::stable_sort(devices.begin(), devices.end(),
                   [](const auto& left, const auto& right) { return left.name < right.name; });
  const AudioObjectID defaultOutput = hal.defaultOutput();

  console.print("Audio devices (" + std::to_string(devices.size()) + "):\n");
  for (const AudioDeviceInfo& device : devices) {
    console.print((device.id == defaultOutput ? "▶︎ " : "  ") + device.name);
    console.print("    uid: " + device.uid);
    console.print("    " + tags(device));
  }
  console.print("\n▶︎ = current system default output");
  if (std::none_of(devices.begin(), devices.end(), hasInputsAndOutputs)) {
    console.print("\nNo virtual loopback device found. Install one to enable boost:");
    console.print("    brew install blackhole-2ch");
  }
}

int watchDefaultOutput(const HAL& hal, Console& console, MainQueue& queue) {
  console.print("Watching default-output changes. Ctrl-C to stop.\n");
  console.print("current: " + hal.describe(hal.defaultOutput()).name);
  hal.observeDefaultOutputChanges([&console](const AudioDeviceInfo& device) {
    console.print("switched → " + device.name + "  (out:" + std::to_string(device.outputChannels) +
                  ")");
  });
  return queue.run();
}

}  // namespace orvelle
