#include "orvelle/platform/coreaudio/CapturePermission.h"

#import <AVFoundation/AVCaptureDevice.h>
#import <Foundation/Foundation.h>

namespace orvelle::coreaudio {

namespace {

/// What AVFoundation calls AVMediaTypeAudio.
NSString* const kSound = @"soun";

/// AVFoundation is loaded only for a boost: it is far larger than everything else that a command
/// or the guardian has use for.
Class captureDevices() {
  [[NSBundle bundleWithPath:@"/System/Library/Frameworks/AVFoundation.framework"] load];
  return NSClassFromString(@"AVCaptureDevice");
}

}  // namespace

CapturePermission microphonePermission() {
  @autoreleasepool {
    Class const devices = captureDevices();
    if (devices == nil) {
      return CapturePermission::granted;
    }
    switch ([devices authorizationStatusForMediaType:kSound]) {
      case AVAuthorizationStatusNotDetermined:
        return CapturePermission::undecided;
      case AVAuthorizationStatusRestricted:
      case AVAuthorizationStatusDenied:
        return CapturePermission::refused;
      case AVAuthorizationStatusAuthorized:
        break;
    }
    return CapturePermission::granted;
  }
}

void requestMicrophone() {
  @autoreleasepool {
    [captureDevices() requestAccessForMediaType:kSound
                              completionHandler:^(BOOL /*isGranted*/){
                              }];
  }
}

}  // namespace orvelle::coreaudio
