// Making process taps, declared anew from its public documentation. For compilers only.
#pragma once

#ifdef __OBJC__  // C++ sees nothing of it on the platform, either

#import "CoreAudio/CoreAudio.h"

@class CATapDescription;

extern "C" OSStatus AudioHardwareCreateProcessTap(CATapDescription* description, AudioObjectID* tap)
    ORVELLE_SINCE_MACOS(14.2);
extern "C" OSStatus AudioHardwareDestroyProcessTap(AudioObjectID tap) ORVELLE_SINCE_MACOS(14.2);

#endif
