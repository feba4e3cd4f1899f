// The part of Core Foundation that the CoreAudio back end uses, declared anew from its public
// documentation, so that the back end's sources compile where there is no macOS.
#pragma once

#include <cstdint>

#if defined(__APPLE__)
#define ORVELLE_SINCE_MACOS(version) __attribute__((availability(macos, introduced = version)))
#else
#define ORVELLE_SINCE_MACOS(version)
#endif

extern "C" {

using UInt8 = std::uint8_t;
using UInt32 = std::uint32_t;
using SInt32 = std::int32_t;
using Float32 = float;
using Float64 = double;
using OSStatus = SInt32;
using Boolean = unsigned char;
using CFIndex = long;
using CFTypeRef = const void*;
using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFNumberRef = const struct __CFNumber*;
using CFArrayRef = const struct __CFArray*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFStringEncoding = UInt32;
using CFNumberType = CFIndex;

// Callbacks that retain what is put into a collection. Opaque here: nobody looks into them.
struct CFArrayCallBacks;
struct CFDictionaryKeyCallBacks;
struct CFDictionaryValueCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
extern const CFAllocatorRef kCFAllocatorDefault;

inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
inline constexpr CFNumberType kCFNumberSInt32Type = 3;

void CFRelease(CFTypeRef reference);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex byteCount,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFIndex CFStringGetLength(CFStringRef string);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callbacks);
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* keyCallbacks,
                                   const CFDictionaryValueCallBacks* valueCallbacks);

}  // extern "C"
