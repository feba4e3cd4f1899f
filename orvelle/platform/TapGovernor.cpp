#include "orvelle/platform/TapGovernor.h"

namespace orvelle {

AudioObjectID governingLoopback(const AggregateOutline& reader,
                                std::span<const AggregateOutline> aggregates,
                                AudioObjectID defaultLoopback) {
  if (!reader.hasTaps || reader.loopback != kAudioObjectUnknown) {
    return kAudioObjectUnknown;
  }
  AudioObjectID governor = defaultLoopback;
  for (const AggregateOutline& other : aggregates) {
    if (other.loopback == kAudioObjectUnknown) {
      continue;
    }
    if (other.masterUID == reader.masterUID) {
      return other.loopback;
    }
    if (other.loopback == defaultLoopback && other.isStarted) {
      governor = kAudioObjectUnknown;  // it stands for the output that the other one feeds
    }
  }
  return governor;
}

}  // namespace orvelle
