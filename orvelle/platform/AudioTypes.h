// The vocabulary of the audio hardware: object ids, four-character codes, statuses, property values
// and sample buffers. Names and numbers are those of the CoreAudio HAL, as plain C++ types of ours.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace orvelle {

/// An object of the audio hardware: the system, a device, a process or a tap. 0 means none.
using AudioObjectID = std::uint32_t;
/// 0 is success; everything else is an error of the back end.
using OSStatus = std::int32_t;
/// A callback registered on a device. 0 means none.
using AudioDeviceIOProcID = std::uint64_t;

/// Packs a four-character code as the HAL does, first character in the highest byte.
// NOLINTNEXTLINE(modernize-avoid-c-arrays): takes string literals.
constexpr std::uint32_t fourCharacterCode(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) {
    code = (code << 8U) | static_cast<unsigned char>(text[i]);
  }
  return code;
}

inline constexpr AudioObjectID kAudioObjectUnknown = 0;
inline constexpr AudioObjectID kAudioObjectSystemObject = 1;

// Statuses.
inline constexpr OSStatus kAudioHardwareNoError = 0;
inline constexpr OSStatus kAudioHardwareNotRunningError = fourCharacterCode("stop");
inline constexpr OSStatus kAudioHardwareUnspecifiedError = fourCharacterCode("what");
inline constexpr OSStatus kAudioHardwareUnknownPropertyError = fourCharacterCode("who?");
inline constexpr OSStatus kAudioHardwareBadPropertySizeError = fourCharacterCode("!siz");
inline constexpr OSStatus kAudioHardwareIllegalOperationError = fourCharacterCode("nope");
inline constexpr OSStatus kAudioHardwareBadObjectError = fourCharacterCode("!obj");
inline constexpr OSStatus kAudioHardwareBadDeviceError = fourCharacterCode("!dev");
inline constexpr OSStatus kAudioHardwareUnsupportedOperationError = fourCharacterCode("unop");
inline constexpr OSStatus kAudioHardwareNotReadyError = fourCharacterCode("nrdy");
inline constexpr OSStatus kAudioDeviceUnsupportedFormatError = fourCharacterCode("!dat");

// Scopes and elements.
inline constexpr std::uint32_t kAudioObjectPropertyScopeGlobal = fourCharacterCode("glob");
inline constexpr std::uint32_t kAudioObjectPropertyScopeInput = fourCharacterCode("inpt");
inline constexpr std::uint32_t kAudioObjectPropertyScopeOutput = fourCharacterCode("outp");
inline constexpr std::uint32_t kAudioObjectPropertyElementMain = 0;

// Selectors, with the type of the value in brackets.
inline constexpr std::uint32_t kAudioHardwarePropertyDevices =
    fourCharacterCode("dev#");  // [id list]
inline constexpr std::uint32_t kAudioHardwarePropertyDefaultOutputDevice =
    fourCharacterCode("dOut");  // [std::uint32_t]
inline constexpr std::uint32_t kAudioHardwarePropertyProcessObjectList =
    fourCharacterCode("prs#");                                                        // [id list]
inline constexpr std::uint32_t kAudioObjectPropertyName = fourCharacterCode("lnam");  // [text]
inline constexpr std::uint32_t kAudioDevicePropertyDeviceUID = fourCharacterCode("uid ");  // [text]
inline constexpr std::uint32_t kAudioDevicePropertyStreamConfiguration =
    fourCharacterCode("slay");  // [StreamConfiguration]
inline constexpr std::uint32_t kAudioDevicePropertyTransportType =
    fourCharacterCode("tran");  // [std::uint32_t]
/// 0 is silence, 1 is full; the scale is the one that volume controls show. [float]
inline constexpr std::uint32_t kAudioDevicePropertyVolumeScalar = fourCharacterCode("volm");
inline constexpr std::uint32_t kAudioDevicePropertyMute =
    fourCharacterCode("mute");  // [std::uint32_t]
inline constexpr std::uint32_t kAudioDevicePropertyNominalSampleRate =
    fourCharacterCode("nsrt");  // [double, Hz]
inline constexpr std::uint32_t kAudioDevicePropertyDeviceIsRunning =
    fourCharacterCode("goin");  // [std::uint32_t]
inline constexpr std::uint32_t kAudioProcessPropertyPID =
    fourCharacterCode("ppid");  // [std::int32_t]
inline constexpr std::uint32_t kAudioProcessPropertyBundleID = fourCharacterCode("pbid");  // [text]
inline constexpr std::uint32_t kAudioProcessPropertyIsRunningOutput =
    fourCharacterCode("piro");  // [std::uint32_t]
inline constexpr std::uint32_t kAudioTapPropertyFormat =
    fourCharacterCode("tfmt");  // [StreamFormat]

// Transports.
inline constexpr std::uint32_t kAudioDeviceTransportTypeUnknown = 0;
inline constexpr std::uint32_t kAudioDeviceTransportTypeBuiltIn = fourCharacterCode("bltn");
inline constexpr std::uint32_t kAudioDeviceTransportTypeAggregate = fourCharacterCode("grup");
inline constexpr std::uint32_t kAudioDeviceTransportTypeVirtual = fourCharacterCode("virt");
inline constexpr std::uint32_t kAudioDeviceTransportTypePCI = fourCharacterCode("pci ");
inline constexpr std::uint32_t kAudioDeviceTransportTypeUSB = fourCharacterCode("usb ");
inline constexpr std::uint32_t kAudioDeviceTransportTypeFireWire = fourCharacterCode("1394");
inline constexpr std::uint32_t kAudioDeviceTransportTypeBluetooth = fourCharacterCode("blue");
inline constexpr std::uint32_t kAudioDeviceTransportTypeBluetoothLE = fourCharacterCode("blea");
inline constexpr std::uint32_t kAudioDeviceTransportTypeHDMI = fourCharacterCode("hdmi");
inline constexpr std::uint32_t kAudioDeviceTransportTypeDisplayPort = fourCharacterCode("dprt");

/// Where a property is found on an object.
struct PropertyAddress {
  std::uint32_t selector = 0;
  std::uint32_t scope = kAudioObjectPropertyScopeGlobal;
  std::uint32_t element = kAudioObjectPropertyElementMain;

  // NOLINTNEXTLINE(modernize-use-nullptr): sees a null pointer in the comparison with 0.
  friend auto operator<=>(const PropertyAddress&, const PropertyAddress&) = default;
};

/// Whether the address is that of a scope's main element.
constexpr bool isMainElement(const PropertyAddress& address, std::uint32_t scope) {
  return address.scope == scope && address.element == kAudioObjectPropertyElementMain;
}

/// The buffers of one direction of a device, as channels per buffer.
struct StreamConfiguration {
  std::vector<std::uint32_t> channelsPerBuffer;

  friend bool operator==(const StreamConfiguration&, const StreamConfiguration&) = default;
};

/// The sample format of a stream or tap, field for field the HAL's stream description.
struct StreamFormat {
  double sampleRate = 0.0;  // Hz
  std::uint32_t formatID = 0;
  std::uint32_t formatFlags = 0;
  std::uint32_t bytesPerPacket = 0;
  std::uint32_t framesPerPacket = 0;
  std::uint32_t bytesPerFrame = 0;
  std::uint32_t channelsPerFrame = 0;
  std::uint32_t bitsPerChannel = 0;

  friend bool operator==(const StreamFormat&, const StreamFormat&) = default;
};

/// The value of any property. The empty alternative is what a failed read leaves.
using PropertyValue =
    std::variant<std::monostate, std::uint32_t, std::int32_t, float, double, std::string,
                 std::vector<AudioObjectID>, StreamConfiguration, StreamFormat>;

/// One buffer of interleaved 32-bit float samples, laid out as the HAL's.
struct AudioBuffer {
  std::uint32_t mNumberChannels = 0;
  std::uint32_t mDataByteSize = 0;
  void* mData = nullptr;
};
static_assert(sizeof(AudioBuffer) == 16 && offsetof(AudioBuffer, mData) == 8);

/// The buffers of one direction of one I/O cycle.
using AudioBufferList = std::span<const AudioBuffer>;

}  // namespace orvelle
