#include "orvelle/OutputLevel.h"

namespace orvelle {

OutputLevel outputLevel(const HAL& hal, AudioObjectID output) {
  return {hal.outputVolume(output), hal.outputMute(output)};
}

bool hasOutputLevel(const HAL& hal, AudioObjectID output, const OutputLevel& level) {
  return (!level.volume || hal.hasOutputVolume(output, *level.volume)) &&
         (!level.mute || hal.outputMute(output).value_or(false) == *level.mute);
}

bool setOutputLevel(const HAL& hal, AudioObjectID output, const OutputLevel& level) {
  const bool mute = level.mute.value_or(false);
  if (mute) {
    hal.setOutputMute(output, true);
  }
  if (level.volume) {
    hal.setOutputVolume(output, *level.volume);
  }
  if (level.mute && !mute) {
    hal.setOutputMute(output, false);
  }
  return hasOutputLevel(hal, output, level);
}

}  // namespace orvelle
