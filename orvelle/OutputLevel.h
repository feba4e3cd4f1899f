// Volume and mute of an output, taken together.
#pragma once

#include <optional>

#include "orvelle/HAL.h"

namespace orvelle {

/// As far as the output has them.
struct OutputLevel {
  std::optional<float> volume;  ///< 0 to 1, as volume controls show it
  std::optional<bool> mute;

  friend bool operator==(const OutputLevel&, const OutputLevel&) = default;
};

/// Any thread but the real-time one, all three.
OutputLevel outputLevel(const HAL& hal, AudioObjectID output);
bool hasOutputLevel(const HAL& hal, AudioObjectID output, const OutputLevel& level);
/// Whether the output has taken the level. The quieter of the two changes comes first.
bool setOutputLevel(const HAL& hal, AudioObjectID output, const OutputLevel& level);

}  // namespace orvelle
