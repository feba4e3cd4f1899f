// As Foundation.h: the part of AppKit that knows running applications.
#pragma once

#import <Foundation/Foundation.h>

@interface NSRunningApplication : NSObject
+ (instancetype)runningApplicationWithProcessIdentifier:(int)pid;
@property(readonly, copy) NSString* localizedName;
@end
