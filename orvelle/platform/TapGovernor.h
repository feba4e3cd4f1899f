// Which loopback's volume and mute govern what a tap plays past it: the rule of AudioHardware.h.
#pragma once

#include <span>
#include <string>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// What the rule needs to know of an aggregate.
struct AggregateOutline {
  std::string masterUID;
  /// The loopback among its members; 0 for none.
  AudioObjectID loopback = kAudioObjectUnknown;
  bool hasTaps = false;
  bool isStarted = false;
};

/// The loopback that stands in for the own volume and mute of the output that `reader` plays into;
/// 0 where the output's own govern. `aggregates` are all that are known, with or without the
/// reader; `defaultLoopback` is the default output if that is a loopback, else 0.
AudioObjectID governingLoopback(const AggregateOutline& reader,
                                std::span<const AggregateOutline> aggregates,
                                AudioObjectID defaultLoopback);

}  // namespace orvelle
