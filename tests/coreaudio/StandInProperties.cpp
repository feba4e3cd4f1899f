// Property values of the stand-in, in the HAL's memory layout.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "tests/coreaudio/StandIn.h"
#include "tests/coreaudio/StandInIOProc.h"

namespace orvelle::coreaudio {

namespace {

PropertyAddress ours(const ::AudioObjectPropertyAddress& address) {
  return {address.mSelector, address.mScope, address.mElement};
}

bool isObjectID(std::uint32_t selector) {
  return selector == kAudioHardwarePropertyDefaultOutputDevice;
}

void checkScope(const ::AudioObjectPropertyAddress& address) {
  const bool isGlobal = address.mScope == kAudioObjectPropertyScopeGlobal;
  const bool isOutput = address.mScope == kAudioObjectPropertyScopeOutput;
  bool isRight = isGlobal;
  switch (address.mSelector) {
    case kAudioDevicePropertyVolumeScalar:
    case ::kAudioDevicePropertyVolumeDecibels:
    case kAudioDevicePropertyMute:
      isRight = isOutput;
      break;
    case kAudioDevicePropertyStreamConfiguration:
    case ::kAudioDevicePropertyIOProcStreamUsage:
      isRight = !isGlobal;
      break;
    default:
      break;
  }
  if (!isRight) {
    reportFault("a property is looked for in a scope that it is not in: selector " +
                std::to_string(address.mSelector));
  }
}

std::vector<std::byte> memoryOf(const PropertyValue& value) {
  std::vector<std::byte> bytes;
  const auto append = [&bytes](const void* from, std::size_t size) {
    const auto* begin = static_cast<const std::byte*>(from);
    bytes.insert(bytes.end(), begin, begin + size);
  };
  if (const auto* text = std::get_if<std::string>(&value)) {
    CFStringRef const string = newString(*text);
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the reference itself
    append(&string, sizeof(string));
  } else if (const auto* ids = std::get_if<std::vector<AudioObjectID>>(&value)) {
    append(ids->data(), ids->size() * sizeof(AudioObjectID));
  } else if (const auto* streams = std::get_if<StreamConfiguration>(&value)) {
    const std::array header = {static_cast<std::uint32_t>(streams->channelsPerBuffer.size()), 0U};
    append(header.data(), sizeof(header));
    for (const std::uint32_t channels : streams->channelsPerBuffer) {
      const ::AudioBuffer buffer{channels, 0, nullptr};
      append(&buffer, sizeof(buffer));
    }
  } else if (const auto* format = std::get_if<StreamFormat>(&value)) {
    const ::AudioStreamBasicDescription description{
        format->sampleRate,       format->formatID,        format->formatFlags,
        format->bytesPerPacket,   format->framesPerPacket, format->bytesPerFrame,
        format->channelsPerFrame, format->bitsPerChannel,  0};
    append(&description, sizeof(description));
  } else {
    std::visit([&](const auto& plain) { append(&plain, sizeof(plain)); }, value);
  }
  return bytes;
}

/// The value in `data`, of the kind that `current` has; empty when the size does not fit.
template <class Plain>
PropertyValue plainFrom(UInt32 byteSize, const void* data) {
  Plain plain{};
  if (byteSize != sizeof(plain)) {
    return {};
  }
  std::memcpy(&plain, data, sizeof(plain));
  return plain;
}

PropertyValue valueFrom(const PropertyValue& current, UInt32 byteSize, const void* data) {
  if (std::holds_alternative<float>(current)) {
    return plainFrom<float>(byteSize, data);
  }
  return std::holds_alternative<double>(current) ? plainFrom<double>(byteSize, data)
                                                 : plainFrom<std::uint32_t>(byteSize, data);
}

}  // namespace

AudioObjectID StandIn::worldID(::AudioObjectID hal) const {
  if (hal <= kAudioObjectSystemObject) {
    return hal;
  }
  return hal > idOffset_ + kAudioObjectSystemObject ? hal - idOffset_ : 0x7FFFFFF0;
}

::AudioObjectID StandIn::halID(AudioObjectID world) const {
  return world <= kAudioObjectSystemObject ? world : world + idOffset_;
}

bool StandIn::isUnknownYet(::AudioObjectID object) {
  const std::lock_guard lock(mutex_);
  const auto found = aggregates_.find(object);
  return found != aggregates_.end() &&
         queue_.now() < found->second.createdAt + adversity.freshAggregatesAreUnknownSeconds;
}

/// An aggregate whose parts have not been found yet has no streams; what was just started does not
/// run yet.
void StandIn::lag(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                  PropertyValue& value) {
  const std::lock_guard lock(mutex_);
  if (address.mSelector == kAudioDevicePropertyDeviceIsRunning &&
      std::ranges::any_of(procs_, [&](const auto& keyed) {
        return keyed.second->device == object &&
               queue_.now() < keyed.second->startedAt + adversity.runningLagSeconds;
      })) {
    value = std::uint32_t{0};
  }
  const auto found = aggregates_.find(object);
  if (address.mSelector != kAudioDevicePropertyStreamConfiguration || found == aggregates_.end()) {
    return;
  }
  const double age = queue_.now() - found->second.createdAt;
  if (age < adversity.streamsLagSeconds) {
    value = StreamConfiguration{};
  } else if (age < adversity.tapStreamsLagSeconds &&
             address.mScope == kAudioObjectPropertyScopeInput) {
    auto& buffers = std::get<StreamConfiguration>(value).channelsPerBuffer;
    buffers.resize(buffers.size() - found->second.description.taps.size());
  }
}

void StandIn::addLingering(std::vector<AudioObjectID>& halDevices) {
  const std::lock_guard lock(mutex_);
  std::erase_if(lingering_, [this](const auto& entry) { return entry.second <= queue_.now(); });
  for (const auto& [device, until] : lingering_) {
    halDevices.push_back(device);
  }
}

OSStatus StandIn::read(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                       PropertyValue& value) {
  checkScope(address);
  if (isUnknownYet(object)) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (address.mSelector == ::kAudioDevicePropertyVolumeDecibels) {
    return readDecibels(object, address, value);
  }
  const OSStatus status = world_.getPropertyData(worldID(object), ours(address), value);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  lag(object, address, value);
  if (auto* ids = std::get_if<std::vector<AudioObjectID>>(&value)) {
    std::ranges::transform(*ids, ids->begin(), [this](AudioObjectID id) { return halID(id); });
    if (address.mSelector == kAudioHardwarePropertyDevices) {
      addLingering(*ids);
    }
  } else if (isObjectID(address.mSelector)) {
    value = std::uint32_t{halID(std::get<std::uint32_t>(value))};
  }
  return status;
}

OSStatus StandIn::readDecibels(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                               PropertyValue& value) {
  if (adversity.tellsNoDecibels) {
    return kAudioHardwareUnspecifiedError;
  }
  PropertyAddress scalarAddress = ours(address);
  scalarAddress.selector = kAudioDevicePropertyVolumeScalar;
  PropertyValue scalar;
  const OSStatus status = world_.getPropertyData(worldID(object), scalarAddress, scalar);
  if (status == kAudioHardwareNoError) {
    value = 20.0F * std::log10(std::max(1e-6F, volumeFactor(std::get<float>(scalar))));
  }
  return status;
}

Boolean StandIn::hasProperty(::AudioObjectID object, const ::AudioObjectPropertyAddress& address) {
  return !isUnknownYet(object) && world_.hasProperty(worldID(object), ours(address)) ? 1 : 0;
}

OSStatus StandIn::isSettable(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                             Boolean& settable) {
  bool isSettable = false;
  const OSStatus status = world_.isPropertySettable(worldID(object), ours(address), isSettable);
  settable = isSettable ? 1 : 0;
  return status;
}

OSStatus StandIn::dataSize(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                           UInt32& byteSize) {
  if (address.mSelector == ::kAudioDevicePropertyIOProcStreamUsage) {
    return streamUsageSize(object, byteSize);
  }
  std::uint32_t worldSize = 0;
  OSStatus status = world_.getPropertyDataSize(worldID(object), ours(address), worldSize);
  PropertyValue value;
  if (status == kAudioHardwareNoError) {
    status = read(object, address, value);
  }
  if (status == kAudioHardwareNoError) {
    byteSize = std::holds_alternative<std::string>(value)
                   ? sizeof(CFStringRef)
                   : static_cast<UInt32>(memoryOf(value).size());
  }
  return status;
}

OSStatus StandIn::data(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                       UInt32 qualifierSize, const void* qualifier, UInt32& byteSize, void* data) {
  if (address.mSelector == ::kAudioHardwarePropertyTranslateUIDToDevice) {
    return deviceOfUID(qualifierSize, qualifier, byteSize, data);
  }
  if (address.mSelector == ::kAudioDevicePropertyIOProcStreamUsage) {
    return streamUsage(object, byteSize, data);
  }
  PropertyValue value;
  const OSStatus status = read(object, address, value);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  const bool isText = std::holds_alternative<std::string>(value);
  if (isText && byteSize < sizeof(CFStringRef)) {
    return kAudioHardwareBadPropertySizeError;
  }
  const std::vector<std::byte> bytes = memoryOf(value);
  if (byteSize < bytes.size()) {
    return kAudioHardwareBadPropertySizeError;
  }
  byteSize = static_cast<UInt32>(bytes.size());
  if (!bytes.empty()) {
    std::memcpy(data, bytes.data(), bytes.size());
  }
  return status;
}

OSStatus StandIn::deviceOfUID(UInt32 qualifierSize, const void* qualifier, UInt32& byteSize,
                              void* data) {
  // NOLINTNEXTLINE(bugprone-sizeof-expression): the reference itself
  if (qualifierSize != sizeof(CFStringRef) || byteSize != sizeof(::AudioObjectID)) {
    reportFault("a uid is translated without one, or into no id");
    return kAudioHardwareBadPropertySizeError;
  }
  CFStringRef uid = nullptr;
  // NOLINTNEXTLINE(bugprone-sizeof-expression): the reference itself
  std::memcpy(&uid, qualifier, sizeof(uid));
  const ::AudioObjectID device = halID(world_.id(stringText(uid)));
  std::memcpy(data, &device, sizeof(device));
  return kAudioHardwareNoError;
}

OSStatus StandIn::setData(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                          UInt32 byteSize, const void* data) {
  if (address.mSelector == ::kAudioHardwarePropertyRunLoop) {
    return kAudioHardwareNoError;
  }
  if (address.mSelector == ::kAudioDevicePropertyIOProcStreamUsage) {
    return setStreamUsage(object, byteSize, data);
  }
  checkScope(address);
  callListenersDuringCall();
  // What is there now tells only what a value looks like; asking for it is nobody's call.
  PropertyValue current = std::uint32_t{0};
  if (address.mSelector == kAudioDevicePropertyVolumeScalar) {
    current = 0.0F;
  } else if (address.mSelector == kAudioDevicePropertyNominalSampleRate) {
    current = 0.0;
  }
  PropertyValue value = valueFrom(current, byteSize, data);
  if (std::holds_alternative<std::monostate>(value)) {
    reportFault("a value is set whose size is wrong");
    return kAudioHardwareBadPropertySizeError;
  }
  if (isObjectID(address.mSelector)) {
    value = std::uint32_t{worldID(std::get<std::uint32_t>(value))};
  }
  return world_.setPropertyData(worldID(object), ours(address), value);
}

}  // namespace orvelle::coreaudio
