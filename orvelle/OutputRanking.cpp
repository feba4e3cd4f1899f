#include "orvelle/OutputRanking.h"

#include <algorithm>

namespace orvelle {

namespace {

int rank(const AudioDeviceInfo& output) {
  switch (output.transportType) {
    case kAudioDeviceTransportTypeBluetooth:
    case kAudioDeviceTransportTypeBluetoothLE:
      return 3;
    case kAudioDeviceTransportTypeUSB:
      return 2;
    case kAudioDeviceTransportTypeBuiltIn:
      return 0;
    default:
      return 1;
  }
}

}  // namespace

std::optional<AudioDeviceInfo> bestOutput(std::span<const AudioDeviceInfo> outputs) {
  const auto best = std::ranges::max_element(outputs, {}, rank);  // the first among equals
  return best == outputs.end() ? std::nullopt : std::optional<AudioDeviceInfo>(*best);
}

}  // namespace orvelle
