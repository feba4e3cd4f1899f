// As Foundation.h: the part of ServiceManagement that this program uses.
#pragma once

#import <Foundation/Foundation.h>

enum SMAppServiceStatus : NSInteger {
  SMAppServiceStatusNotRegistered = 0,
  SMAppServiceStatusEnabled = 1,
  SMAppServiceStatusRequiresApproval = 2,
  SMAppServiceStatusNotFound = 3,
};

enum { kSMErrorJobNotFound = 6 };

__attribute__((availability(macos, introduced = 13.0)))
@interface SMAppService : NSObject
@property(class, readonly, strong) SMAppService* mainAppService;
@property(readonly) SMAppServiceStatus status;
- (BOOL)registerAndReturnError:(NSError**)error;
- (BOOL)unregisterAndReturnError:(NSError**)error;
@end
