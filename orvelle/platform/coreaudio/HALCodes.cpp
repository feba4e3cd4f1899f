// That our names of the HAL's codes have the HAL's numbers, and our types its sizes.
#include <CoreAudio/CoreAudio.h>

#include <cstddef>
#include <type_traits>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

static_assert(std::is_same_v<AudioObjectID, ::AudioObjectID>);
static_assert(std::is_same_v<OSStatus, ::OSStatus>);
static_assert(sizeof(AudioBuffer) == sizeof(::AudioBuffer));
static_assert(sizeof(void*) == sizeof(::AudioDeviceIOProcID));
static_assert(sizeof(::AudioObjectPropertyAddress) == 12);
static_assert(offsetof(::AudioBufferList, mBuffers) == 8);
static_assert(sizeof(::AudioStreamBasicDescription) == 40);
static_assert(offsetof(::AudioHardwareIOProcStreamUsage, mStreamIsOn) == 12);

#define ORVELLE_SAME_CODE(name) \
  static_assert(static_cast<std::uint32_t>(name) == static_cast<std::uint32_t>(::name))

ORVELLE_SAME_CODE(kAudioObjectSystemObject);
ORVELLE_SAME_CODE(kAudioHardwareNotRunningError);
ORVELLE_SAME_CODE(kAudioHardwareUnspecifiedError);
ORVELLE_SAME_CODE(kAudioHardwareUnknownPropertyError);
ORVELLE_SAME_CODE(kAudioHardwareBadPropertySizeError);
ORVELLE_SAME_CODE(kAudioHardwareIllegalOperationError);
ORVELLE_SAME_CODE(kAudioHardwareBadObjectError);
ORVELLE_SAME_CODE(kAudioHardwareBadDeviceError);
ORVELLE_SAME_CODE(kAudioHardwareUnsupportedOperationError);
ORVELLE_SAME_CODE(kAudioHardwareNotReadyError);
ORVELLE_SAME_CODE(kAudioDeviceUnsupportedFormatError);
ORVELLE_SAME_CODE(kAudioObjectPropertyScopeGlobal);
ORVELLE_SAME_CODE(kAudioObjectPropertyScopeInput);
ORVELLE_SAME_CODE(kAudioObjectPropertyScopeOutput);
ORVELLE_SAME_CODE(kAudioObjectPropertyElementMain);
ORVELLE_SAME_CODE(kAudioHardwarePropertyDevices);
ORVELLE_SAME_CODE(kAudioHardwarePropertyDefaultOutputDevice);
ORVELLE_SAME_CODE(kAudioHardwarePropertyProcessObjectList);
ORVELLE_SAME_CODE(kAudioObjectPropertyName);
ORVELLE_SAME_CODE(kAudioDevicePropertyDeviceUID);
ORVELLE_SAME_CODE(kAudioDevicePropertyStreamConfiguration);
ORVELLE_SAME_CODE(kAudioDevicePropertyTransportType);
ORVELLE_SAME_CODE(kAudioDevicePropertyVolumeScalar);
ORVELLE_SAME_CODE(kAudioDevicePropertyMute);
ORVELLE_SAME_CODE(kAudioDevicePropertyNominalSampleRate);
ORVELLE_SAME_CODE(kAudioDevicePropertyDeviceIsRunning);
ORVELLE_SAME_CODE(kAudioProcessPropertyPID);
ORVELLE_SAME_CODE(kAudioProcessPropertyBundleID);
ORVELLE_SAME_CODE(kAudioProcessPropertyIsRunningOutput);
ORVELLE_SAME_CODE(kAudioTapPropertyFormat);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeBuiltIn);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeAggregate);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeVirtual);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypePCI);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeUSB);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeFireWire);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeBluetooth);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeBluetoothLE);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeHDMI);
ORVELLE_SAME_CODE(kAudioDeviceTransportTypeDisplayPort);

#undef ORVELLE_SAME_CODE

}  // namespace orvelle
