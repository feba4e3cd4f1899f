// The part of the CoreAudio HAL that the back end uses, declared anew from its public
// documentation, so that the back end's sources compile where there is no macOS.
#pragma once

#include <cstddef>

#include "CoreFoundation/CoreFoundation.h"

extern "C" {

using AudioObjectID = UInt32;
using AudioDeviceID = AudioObjectID;
using AudioObjectPropertySelector = UInt32;
using AudioObjectPropertyScope = UInt32;
using AudioObjectPropertyElement = UInt32;

struct AudioObjectPropertyAddress {
  AudioObjectPropertySelector mSelector;
  AudioObjectPropertyScope mScope;
  AudioObjectPropertyElement mElement;
};
static_assert(sizeof(AudioObjectPropertyAddress) == 12);

struct AudioBuffer {
  UInt32 mNumberChannels;
  UInt32 mDataByteSize;
  void* mData;
};
static_assert(sizeof(AudioBuffer) == 16 && offsetof(AudioBuffer, mData) == 8);

struct AudioBufferList {
  UInt32 mNumberBuffers;
  AudioBuffer mBuffers[1];
};
static_assert(sizeof(AudioBufferList) == 24 && offsetof(AudioBufferList, mBuffers) == 8);

struct AudioStreamBasicDescription {
  Float64 mSampleRate;
  UInt32 mFormatID;
  UInt32 mFormatFlags;
  UInt32 mBytesPerPacket;
  UInt32 mFramesPerPacket;
  UInt32 mBytesPerFrame;
  UInt32 mChannelsPerFrame;
  UInt32 mBitsPerChannel;
  UInt32 mReserved;
};
static_assert(sizeof(AudioStreamBasicDescription) == 40);

struct SMPTETime {
  std::int16_t mSubframes;
  std::int16_t mSubframeDivisor;
  UInt32 mCounter;
  UInt32 mType;
  UInt32 mFlags;
  std::int16_t mHours;
  std::int16_t mMinutes;
  std::int16_t mSeconds;
  std::int16_t mFrames;
};

struct AudioTimeStamp {
  Float64 mSampleTime;
  std::uint64_t mHostTime;
  Float64 mRateScalar;
  std::uint64_t mWordClockTime;
  SMPTETime mSMPTETime;
  UInt32 mFlags;
  UInt32 mReserved;
};
static_assert(sizeof(AudioTimeStamp) == 64);

/// Which streams a callback wants; those that are off are not opened for it.
struct AudioHardwareIOProcStreamUsage {
  void* mIOProc;
  UInt32 mNumberStreams;
  UInt32 mStreamIsOn[1];
};
static_assert(offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn) == 12);

using AudioDeviceIOProc = OSStatus (*)(AudioObjectID device, const AudioTimeStamp* now,
                                       const AudioBufferList* input,
                                       const AudioTimeStamp* inputTime, AudioBufferList* output,
                                       const AudioTimeStamp* outputTime, void* clientData);
using AudioDeviceIOProcID = AudioDeviceIOProc;
using AudioObjectPropertyListenerProc = OSStatus (*)(AudioObjectID object, UInt32 addressCount,
                                                     const AudioObjectPropertyAddress* addresses,
                                                     void* clientData);

// Four-character codes.
enum : UInt32 {
  kAudioObjectUnknown = 0,
  kAudioObjectSystemObject = 1,
  kAudioObjectPropertyElementMain = 0,
  kAudioObjectPropertyScopeGlobal = 0x676C6F62,             // glob
  kAudioObjectPropertyScopeInput = 0x696E7074,              // inpt
  kAudioObjectPropertyScopeOutput = 0x6F757470,             // outp
  kAudioObjectPropertyName = 0x6C6E616D,                    // lnam
  kAudioHardwarePropertyDevices = 0x64657623,               // dev#
  kAudioHardwarePropertyDefaultOutputDevice = 0x644F7574,   // dOut
  kAudioHardwarePropertyTranslateUIDToDevice = 0x75696464,  // uidd
  kAudioHardwarePropertyServiceRestarted = 0x73727374,      // srst
  kAudioHardwarePropertyRunLoop = 0x726E6C70,               // rnlp
  kAudioHardwarePropertyProcessObjectList = 0x70727323,     // prs#
  kAudioDevicePropertyDeviceUID = 0x75696420,               // 'uid '
  kAudioDevicePropertyTransportType = 0x7472616E,           // tran
  kAudioDevicePropertyDeviceIsRunning = 0x676F696E,         // goin
  kAudioDevicePropertyNominalSampleRate = 0x6E737274,       // nsrt
  kAudioDevicePropertyStreamConfiguration = 0x736C6179,     // slay
  kAudioDevicePropertyIOProcStreamUsage = 0x73757365,       // suse
  kAudioDevicePropertyVolumeScalar = 0x766F6C6D,            // volm
  kAudioDevicePropertyVolumeDecibels = 0x766F6C64,          // vold
  kAudioDevicePropertyMute = 0x6D757465,                    // mute
  kAudioProcessPropertyPID = 0x70706964,                    // ppid
  kAudioProcessPropertyBundleID = 0x70626964,               // pbid
  kAudioProcessPropertyIsRunningOutput = 0x7069726F,        // piro
  kAudioTapPropertyFormat = 0x74666D74,                     // tfmt
  kAudioTapPropertyDescription = 0x74647363,                // tdsc
  kAudioDeviceTransportTypeUnknown = 0,
  kAudioDeviceTransportTypeBuiltIn = 0x626C746E,      // bltn
  kAudioDeviceTransportTypeAggregate = 0x67727570,    // grup
  kAudioDeviceTransportTypeVirtual = 0x76697274,      // virt
  kAudioDeviceTransportTypePCI = 0x70636920,          // 'pci '
  kAudioDeviceTransportTypeUSB = 0x75736220,          // 'usb '
  kAudioDeviceTransportTypeFireWire = 0x31333934,     // 1394
  kAudioDeviceTransportTypeBluetooth = 0x626C7565,    // blue
  kAudioDeviceTransportTypeBluetoothLE = 0x626C6561,  // blea
  kAudioDeviceTransportTypeHDMI = 0x68646D69,         // hdmi
  kAudioDeviceTransportTypeDisplayPort = 0x64707274,  // dprt
};
enum : OSStatus {
  kAudioHardwareNoError = 0,
  kAudioHardwareNotRunningError = 0x73746F70,            // stop
  kAudioHardwareUnspecifiedError = 0x77686174,           // what
  kAudioHardwareUnknownPropertyError = 0x77686F3F,       // who?
  kAudioHardwareBadPropertySizeError = 0x2173697A,       // !siz
  kAudioHardwareIllegalOperationError = 0x6E6F7065,      // nope
  kAudioHardwareBadObjectError = 0x216F626A,             // !obj
  kAudioHardwareBadDeviceError = 0x21646576,             // !dev
  kAudioHardwareUnsupportedOperationError = 0x756E6F70,  // unop
  kAudioHardwareNotReadyError = 0x6E726479,              // nrdy
  kAudioDeviceUnsupportedFormatError = 0x21646174,       // !dat
};

// Keys of the dictionary that describes an aggregate device.
#define kAudioAggregateDeviceUIDKey "uid"
#define kAudioAggregateDeviceNameKey "name"
#define kAudioAggregateDeviceSubDeviceListKey "subdevices"
#define kAudioAggregateDeviceMainSubDeviceKey "master"
#define kAudioAggregateDeviceIsPrivateKey "private"
#define kAudioAggregateDeviceTapListKey "taps"
#define kAudioAggregateDeviceTapAutoStartKey "tapautostart"
#define kAudioSubDeviceUIDKey "uid"
#define kAudioSubDeviceDriftCompensationKey "drift"
#define kAudioSubTapUIDKey "uid"
#define kAudioSubTapDriftCompensationKey "drift"

Boolean AudioObjectHasProperty(AudioObjectID object, const AudioObjectPropertyAddress* address);
OSStatus AudioObjectIsPropertySettable(AudioObjectID object,
                                       const AudioObjectPropertyAddress* address,
                                       Boolean* isSettable);
OSStatus AudioObjectGetPropertyDataSize(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        UInt32 qualifierSize, const void* qualifier,
                                        UInt32* byteSize);
OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32* byteSize,
                                    void* data);
OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifierSize, const void* qualifier, UInt32 byteSize,
                                    const void* data);
OSStatus AudioObjectAddPropertyListener(AudioObjectID object,
                                        const AudioObjectPropertyAddress* address,
                                        AudioObjectPropertyListenerProc listener, void* clientData);
OSStatus AudioObjectRemovePropertyListener(AudioObjectID object,
                                           const AudioObjectPropertyAddress* address,
                                           AudioObjectPropertyListenerProc listener,
                                           void* clientData);
OSStatus AudioHardwareCreateAggregateDevice(CFDictionaryRef description, AudioObjectID* device);
OSStatus AudioHardwareDestroyAggregateDevice(AudioObjectID device);
OSStatus AudioDeviceCreateIOProcID(AudioObjectID device, AudioDeviceIOProc proc, void* clientData,
                                   AudioDeviceIOProcID* procID);
OSStatus AudioDeviceDestroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID);
OSStatus AudioDeviceStart(AudioObjectID device, AudioDeviceIOProcID procID);
OSStatus AudioDeviceStop(AudioObjectID device, AudioDeviceIOProcID procID);

}  // extern "C"
