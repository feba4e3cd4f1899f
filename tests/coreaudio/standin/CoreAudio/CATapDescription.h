// The description of a process tap, declared anew from its public documentation. For compilers
// only: nothing here is implemented.
#pragma once

#import "CoreAudio/CoreAudio.h"
#import "Foundation/Foundation.h"

enum CATapMuteBehavior : NSInteger {
  CATapUnmuted = 0,
  CATapMuted = 1,
  CATapMutedWhenTapped = 2,
};

ORVELLE_SINCE_MACOS(12.0)
@interface CATapDescription : NSObject
- (instancetype)initStereoMixdownOfProcesses:(NSArray<NSNumber*>*)processes;
@property(copy) NSUUID* UUID;
@property CATapMuteBehavior muteBehavior;
- (void)setPrivate:(BOOL)isPrivate;
@end
