// Which of a device's input streams a callback wants.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstdint>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle::coreaudio {

/// Turns off the input streams of which `dropped` has a bit, so that the HAL does not open them: an
/// opened microphone would switch a Bluetooth headset to its call profile, and light the sign that
/// somebody is listening. Before the start.
void turnOffInputs(AudioObjectID halDevice, ::AudioDeviceIOProcID procID, std::uint32_t dropped);

}  // namespace orvelle::coreaudio
