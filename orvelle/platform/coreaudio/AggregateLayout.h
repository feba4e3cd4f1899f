// How the streams of an aggregate are laid out, told from its parts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle::coreaudio {

/// Buffers come in the order of the members, those of taps last.
struct AggregateLayout {
  std::size_t inputs = 0;   ///< buffers, without those of taps
  std::size_t outputs = 0;  ///< buffers
  /// As CallbackSettings has it. A headset's microphone is among the inputs of an aggregate that it
  /// drives, before the loopback or the tap: it would be taken for them, and be heard.
  std::uint32_t droppedInputs = 0;
  /// What is to be heard lies behind more inputs than a callback is given.
  bool isOutOfReach = false;
  /// The HAL's id of the loopback among the members that are not the master; 0 for none.
  AudioObjectID loopback = kAudioObjectUnknown;
};

AggregateLayout layoutOf(const AggregateDescription& description);

/// Whether the aggregate with this id of the HAL's answers, and has the streams of its members.
bool isReady(AudioObjectID hal, const AggregateDescription& description,
             const AggregateLayout& layout);
/// Whether it has those of its taps as well.
bool isComplete(AudioObjectID hal, const AggregateDescription& description,
                const AggregateLayout& layout);

/// Whether it is one of the devices through which what it plays comes back as input. Absent where
/// it does not answer.
std::optional<bool> isLoopback(AudioObjectID halDevice);

}  // namespace orvelle::coreaudio
