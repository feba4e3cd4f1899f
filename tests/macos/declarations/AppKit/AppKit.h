// As Foundation.h: the part of AppKit that this program uses.
#pragma once

#import <AppKit/NSRunningApplication.h>

extern "C" void NSBeep(void);

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
@property(readonly) BOOL accessibilityDisplayShouldReduceMotion
    __attribute__((availability(macos, introduced=10.12)));
@end
