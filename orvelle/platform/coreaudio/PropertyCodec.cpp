#include "orvelle/platform/coreaudio/PropertyCodec.h"

#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include "orvelle/platform/coreaudio/CoreFoundationValues.h"

namespace orvelle::coreaudio {

namespace {

struct KnownProperty {
  std::uint32_t selector;
  ValueKind kind;
};

constexpr std::array kKnownProperties = {
    KnownProperty{kAudioHardwarePropertyDevices, ValueKind::objectList},
    KnownProperty{kAudioHardwarePropertyProcessObjectList, ValueKind::objectList},
    KnownProperty{kAudioHardwarePropertyDefaultOutputDevice, ValueKind::object},
    KnownProperty{kAudioObjectPropertyName, ValueKind::text},
    KnownProperty{kAudioDevicePropertyDeviceUID, ValueKind::text},
    KnownProperty{kAudioProcessPropertyBundleID, ValueKind::text},
    KnownProperty{kAudioDevicePropertyStreamConfiguration, ValueKind::streamConfiguration},
    KnownProperty{kAudioTapPropertyFormat, ValueKind::streamFormat},
    KnownProperty{kAudioDevicePropertyTransportType, ValueKind::unsigned32},
    KnownProperty{kAudioDevicePropertyMute, ValueKind::unsigned32},
    KnownProperty{kAudioDevicePropertyDeviceIsRunning, ValueKind::unsigned32},
    KnownProperty{kAudioProcessPropertyIsRunningOutput, ValueKind::unsigned32},
    KnownProperty{kAudioProcessPropertyPID, ValueKind::signed32},
    KnownProperty{kAudioDevicePropertyVolumeScalar, ValueKind::float32},
    KnownProperty{::kAudioDevicePropertyVolumeDecibels, ValueKind::float32},
    KnownProperty{kAudioDevicePropertyNominalSampleRate, ValueKind::float64},
};

/// A list may grow between the question for its size and the one for its value.
constexpr int kSizeAttempts = 4;

OSStatus readBytes(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                   std::vector<std::byte>& bytes) {
  OSStatus status = kAudioHardwareNoError;
  for (int attempt = 0; attempt < kSizeAttempts; ++attempt) {
    UInt32 byteSize = 0;
    status = AudioObjectGetPropertyDataSize(object, &address, 0, nullptr, &byteSize);
    if (status != kAudioHardwareNoError) {
      return status;
    }
    bytes.resize(byteSize);
    status = AudioObjectGetPropertyData(object, &address, 0, nullptr, &byteSize, bytes.data());
    if (status == kAudioHardwareNoError) {
      bytes.resize(byteSize);  // it may also have become shorter
      return status;
    }
    if (status != kAudioHardwareBadPropertySizeError) {
      return status;
    }
  }
  return status;
}

/// A value of fixed size is asked for without a question for its size, as most are.
template <class Plain>
OSStatus readPlain(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                   Plain& plain) {
  UInt32 byteSize = sizeof(Plain);
  Plain read{};
  const OSStatus status =
      AudioObjectGetPropertyData(object, &address, 0, nullptr, &byteSize, &read);
  if (status == kAudioHardwareNoError && byteSize != sizeof(Plain)) {
    return kAudioHardwareBadPropertySizeError;
  }
  plain = status == kAudioHardwareNoError ? read : plain;
  return status;
}

template <class Plain>
OSStatus readNumber(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                    PropertyValue& value) {
  Plain number{};
  const OSStatus status = readPlain(object, address, number);
  if (status == kAudioHardwareNoError) {
    value = number;
  }
  return status;
}

OSStatus readText(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                  PropertyValue& value) {
  CFTypeRef string = nullptr;
  const OSStatus status = readPlain(object, address, string);
  const Owned owned(static_cast<CFStringRef>(string));
  if (status == kAudioHardwareNoError) {
    value = textOf(owned.get());
  }
  return status;
}

OSStatus readObjectList(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                        PropertyValue& value) {
  std::vector<std::byte> bytes;
  const OSStatus status = readBytes(object, address, bytes);
  if (status == kAudioHardwareNoError) {
    std::vector<AudioObjectID> ids(bytes.size() / sizeof(AudioObjectID));
    if (!ids.empty()) {
      std::memcpy(ids.data(), bytes.data(), ids.size() * sizeof(AudioObjectID));
    }
    value = ids;
  }
  return status;
}

OSStatus readStreams(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                     PropertyValue& value) {
  std::vector<std::byte> bytes;
  const OSStatus status = readBytes(object, address, bytes);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  constexpr std::size_t headerSize = offsetof(::AudioBufferList, mBuffers);
  UInt32 count = 0;
  if (bytes.size() < headerSize) {
    return kAudioHardwareBadPropertySizeError;
  }
  std::memcpy(&count, bytes.data(), sizeof(count));
  if ((bytes.size() - headerSize) / sizeof(::AudioBuffer) < count) {
    return kAudioHardwareBadPropertySizeError;
  }
  StreamConfiguration configuration;
  for (std::size_t index = 0; index < count; ++index) {
    ::AudioBuffer buffer{};
    std::memcpy(&buffer, &bytes[headerSize + index * sizeof(buffer)], sizeof(buffer));
    configuration.channelsPerBuffer.push_back(buffer.mNumberChannels);
  }
  value = configuration;
  return status;
}

OSStatus readFormat(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                    PropertyValue& value) {
  ::AudioStreamBasicDescription read{};
  const OSStatus status = readPlain(object, address, read);
  if (status == kAudioHardwareNoError) {
    value = StreamFormat{read.mSampleRate,       read.mFormatID,        read.mFormatFlags,
                         read.mBytesPerPacket,   read.mFramesPerPacket, read.mBytesPerFrame,
                         read.mChannelsPerFrame, read.mBitsPerChannel};
  }
  return status;
}

template <class Plain>
OSStatus writePlain(AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                    const PropertyValue& value) {
  const auto* plain = std::get_if<Plain>(&value);
  return plain == nullptr
             ? kAudioHardwareBadPropertySizeError
             : AudioObjectSetPropertyData(object, &address, 0, nullptr, sizeof(Plain), plain);
}

}  // namespace

ValueKind kindOf(std::uint32_t selector) {
  for (const KnownProperty& known : kKnownProperties) {
    if (known.selector == selector) {
      return known.kind;
    }
  }
  return ValueKind::unknown;
}

::AudioObjectPropertyAddress halAddress(const PropertyAddress& address) {
  return {address.selector, address.scope, address.element};
}

OSStatus readValue(AudioObjectID object, const PropertyAddress& address, PropertyValue& value) {
  const ::AudioObjectPropertyAddress hal = halAddress(address);
  switch (kindOf(address.selector)) {
    case ValueKind::unsigned32:
    case ValueKind::object:
      return readNumber<std::uint32_t>(object, hal, value);
    case ValueKind::signed32:
      return readNumber<std::int32_t>(object, hal, value);
    case ValueKind::float32:
      return readNumber<float>(object, hal, value);
    case ValueKind::float64:
      return readNumber<double>(object, hal, value);
    case ValueKind::text:
      return readText(object, hal, value);
    case ValueKind::objectList:
      return readObjectList(object, hal, value);
    case ValueKind::streamConfiguration:
      return readStreams(object, hal, value);
    case ValueKind::streamFormat:
      return readFormat(object, hal, value);
    case ValueKind::unknown:
      break;
  }
  return kAudioHardwareUnknownPropertyError;
}

OSStatus writeValue(AudioObjectID object, const PropertyAddress& address,
                    const PropertyValue& value) {
  const ::AudioObjectPropertyAddress hal = halAddress(address);
  switch (kindOf(address.selector)) {
    case ValueKind::unsigned32:
    case ValueKind::object:
      return writePlain<std::uint32_t>(object, hal, value);
    case ValueKind::float32:
      return writePlain<float>(object, hal, value);
    case ValueKind::float64:
      return writePlain<double>(object, hal, value);
    case ValueKind::unknown:
      return kAudioHardwareUnknownPropertyError;
    default:
      return kAudioHardwareUnsupportedOperationError;  // nobody can set any of these
  }
}

AudioObjectID deviceWithUID(const std::string& uid) {
  const Owned<CFStringRef> string = makeString(uid);
  CFTypeRef const qualifier = string.get();
  const ::AudioObjectPropertyAddress address =
      halAddress({::kAudioHardwarePropertyTranslateUIDToDevice});
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 byteSize = sizeof(device);
  const OSStatus status = AudioObjectGetPropertyData(
      kAudioObjectSystemObject, &address, sizeof(qualifier), &qualifier, &byteSize, &device);
  return status == kAudioHardwareNoError ? device : kAudioObjectUnknown;
}

StreamConfiguration streamsOf(AudioObjectID device, std::uint32_t scope) {
  PropertyValue value;
  readValue(device, {kAudioDevicePropertyStreamConfiguration, scope}, value);
  const auto* streams = std::get_if<StreamConfiguration>(&value);
  return streams == nullptr ? StreamConfiguration{} : *streams;
}

}  // namespace orvelle::coreaudio
