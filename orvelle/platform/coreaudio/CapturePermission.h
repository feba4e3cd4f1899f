// Whether the user lets this program receive sound, which the HAL does not say.
#pragma once

#include "orvelle/platform/AudioHardware.h"

namespace orvelle::coreaudio {

/// As the system counts it: of microphones, which loopback devices are to it. Granted where it
/// cannot be asked.
CapturePermission microphonePermission();

/// Has the system ask its user, if it has not yet, and returns at once. The first reading of a
/// device was reported to do so by itself, and not to.
void requestMicrophone();

}  // namespace orvelle::coreaudio
