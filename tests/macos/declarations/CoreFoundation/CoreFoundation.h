// Beside what the audio back end uses of Core Foundation: preferences and what they hold.
#pragma once

#include_next <CoreFoundation/CoreFoundation.h>

extern "C" {

using CFTypeID = unsigned long;
using CFPropertyListRef = CFTypeRef;
using CFDataRef = const struct __CFData*;
using CFBooleanRef = const struct __CFBoolean*;
using CFRunLoopRef = struct __CFRunLoop*;

struct CFRange {
  CFIndex location;
  CFIndex length;
};

inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  return {location, length};
}

extern const CFStringRef kCFPreferencesCurrentApplication;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

CFTypeID CFGetTypeID(CFTypeRef object);
Boolean CFEqual(CFTypeRef one, CFTypeRef other);
CFTypeID CFDataGetTypeID(void);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFIndex CFDataGetLength(CFDataRef data);
void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer);

CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef application);
Boolean CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef application,
                                        Boolean* keyExistsAndHasValidFormat);
void CFPreferencesSetAppValue(CFStringRef key, CFPropertyListRef value, CFStringRef application);
Boolean CFPreferencesAppSynchronize(CFStringRef application);

}  // extern "C"
