// As Foundation.h: the part of AVFoundation that knows what the user allows.
#pragma once

#import <Foundation/Foundation.h>

enum AVAuthorizationStatus : NSInteger {
  AVAuthorizationStatusNotDetermined = 0,
  AVAuthorizationStatusRestricted = 1,
  AVAuthorizationStatusDenied = 2,
  AVAuthorizationStatusAuthorized = 3,
};

__attribute__((availability(macos, introduced = 10.7)))
@interface AVCaptureDevice : NSObject
+ (AVAuthorizationStatus)authorizationStatusForMediaType:(NSString*)mediaType
    __attribute__((availability(macos, introduced = 10.14)));
+ (void)requestAccessForMediaType:(NSString*)mediaType
                completionHandler:(void (^)(BOOL granted))handler
    __attribute__((availability(macos, introduced = 10.14)));
@end
