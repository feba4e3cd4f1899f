// Making process taps: the one part of the HAL that C++ does not see.
#pragma once

#include <string>
#include <vector>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle::coreaudio {

/// Makes a tap of a stereo mixdown of these processes. `processes` and `tap` are the HAL's ids;
/// `uid` is what aggregates name the tap by.
OSStatus createTap(const std::vector<AudioObjectID>& processes, bool isPrivate,
                   TapMuteBehavior muteBehavior, AudioObjectID& tap, std::string& uid);

/// Changes what the processes of a tap are heard of on their normal path.
OSStatus setTapMuteBehavior(AudioObjectID tap, TapMuteBehavior muteBehavior);

/// Ends a tap, which no aggregate may have any more.
OSStatus destroyTap(AudioObjectID tap);

}  // namespace orvelle::coreaudio
