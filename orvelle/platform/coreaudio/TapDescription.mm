#include "orvelle/platform/coreaudio/TapDescription.h"

#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CATapDescription.h>
#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>

namespace orvelle::coreaudio {

// Callers run on threads that may have no pool of their own, where nothing would ever be released.

OSStatus createTap(const std::vector<AudioObjectID>& processes, bool isPrivate,
                   TapMuteBehavior muteBehavior, AudioObjectID& tap, std::string& uid) {
  @autoreleasepool {
    NSMutableArray<NSNumber*>* const numbers = [NSMutableArray array];
    for (const AudioObjectID process : processes) {
      [numbers addObject:[NSNumber numberWithUnsignedInt:process]];
    }
    CATapDescription* const description =
        [[CATapDescription alloc] initStereoMixdownOfProcesses:numbers];
    [description setPrivate:isPrivate];
    description.muteBehavior = static_cast<CATapMuteBehavior>(muteBehavior);
    uid = description.UUID.UUIDString.UTF8String;
    return AudioHardwareCreateProcessTap(description, &tap);
  }
}

OSStatus setTapMuteBehavior(AudioObjectID tap, TapMuteBehavior muteBehavior) {
  @autoreleasepool {
    const ::AudioObjectPropertyAddress address = {kAudioTapPropertyDescription,
                                                  kAudioObjectPropertyScopeGlobal,
                                                  kAudioObjectPropertyElementMain};
    // The value comes with a reference that is ours to give back.
    CFTypeRef read = nullptr;
    UInt32 byteSize = sizeof(read);
    const OSStatus status =
        AudioObjectGetPropertyData(tap, &address, 0, nullptr, &byteSize, &read);
    if (status != kAudioHardwareNoError) {
      return status;
    }
    CATapDescription* const description = (__bridge_transfer CATapDescription*)read;
    description.muteBehavior = static_cast<CATapMuteBehavior>(muteBehavior);
    const void* const written = (__bridge const void*)description;
    return AudioObjectSetPropertyData(tap, &address, 0, nullptr, sizeof(written), &written);
  }
}

OSStatus destroyTap(AudioObjectID tap) {
  return AudioHardwareDestroyProcessTap(tap);
}

}  // namespace orvelle::coreaudio
