// Beside what the audio back end uses of Foundation: what the other services of macOS do, declared
// anew from its public documentation. For compilers only: nothing here is implemented.
#pragma once

#include_next <Foundation/Foundation.h>

@protocol NSObject
@end

@interface NSString (Making)
+ (instancetype)stringWithUTF8String:(const char*)text;
@end

@interface NSError : NSObject
@property(readonly) NSInteger code;
@property(readonly, copy) NSString* localizedDescription;
@end

enum NSActivityOptions : unsigned long long { NSActivityUserInitiated = 0x00FFFFFFULL };

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
- (id<NSObject>)beginActivityWithOptions:(NSActivityOptions)options reason:(NSString*)reason;
- (void)endActivity:(id<NSObject>)activity;
@end
