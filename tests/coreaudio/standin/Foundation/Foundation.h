// The part of Foundation that the audio back end uses, declared anew from its public
// documentation. For compilers only: nothing here is implemented.
#pragma once

#import "CoreFoundation/CoreFoundation.h"

using BOOL = bool;
using NSUInteger = unsigned long;
using NSInteger = long;
#ifndef nil
#define nil nullptr
#endif

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)alloc;
- (instancetype)init;
@end

@interface NSString : NSObject
@property(readonly) const char* UTF8String;
@end

@interface NSUUID : NSObject
@property(readonly, copy) NSString* UUIDString;
@end

@interface NSNumber : NSObject
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value;
@end

@interface NSArray<ObjectType> : NSObject
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
+ (instancetype)array;
- (void)addObject:(ObjectType)object;
@end

@interface NSBundle : NSObject
+ (instancetype)bundleWithPath:(NSString*)path;
- (BOOL)load;
@end

extern "C" Class NSClassFromString(NSString* name);
