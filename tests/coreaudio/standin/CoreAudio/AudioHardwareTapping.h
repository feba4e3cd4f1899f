// Making process taps, declared anew from its public documentation. For compilers only.
#pragma once

#import "CoreAudio/CATapDescription.h"

extern "C" OSStatus AudioHardwareCreateProcessTap(CATapDescription* description, AudioObjectID* tap)
    ORVELLE_SINCE_MACOS(14.2);
