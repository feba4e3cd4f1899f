// The part of Foundation that this program uses, declared anew from its public documentation, so
// that compilers can check its sources where there is no macOS. Nothing here is implemented.
#pragma once

#define nil nullptr
using BOOL = bool;
using NSInteger = long;
using NSUInteger = unsigned long;

@protocol NSObject
@end

__attribute__((objc_root_class))
@interface NSObject <NSObject>
+ (instancetype)alloc;
- (instancetype)init;
@end

@interface NSString : NSObject
+ (instancetype)stringWithUTF8String:(const char*)text;
@property(readonly) const char* UTF8String;
@end

@interface NSError : NSObject
@property(readonly) NSInteger code;
@property(readonly, copy) NSString* localizedDescription;
@end

@interface NSBundle : NSObject
+ (instancetype)bundleWithPath:(NSString*)path;
- (BOOL)load;
@end

extern "C" Class NSClassFromString(NSString* name);

enum NSActivityOptions : unsigned long long { NSActivityUserInitiated = 0x00FFFFFFULL };

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
- (id<NSObject>)beginActivityWithOptions:(NSActivityOptions)options reason:(NSString*)reason;
- (void)endActivity:(id<NSObject>)activity;
@end
