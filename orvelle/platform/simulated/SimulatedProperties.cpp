// Property values of a simulated world, and who is told when they change.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "orvelle/platform/simulated/SimulatedObjects.h"

namespace orvelle {

namespace {

constexpr OSStatus kFound = kAudioHardwareNoError;

template <class Map>
std::vector<AudioObjectID> idsOf(const Map& objects) {
  std::vector<AudioObjectID> ids;
  ids.reserve(objects.size());
  for (const auto& keyed : objects) {
    ids.push_back(keyed.first);
  }
  return ids;
}

/// A tap delivers a stereo mixdown of 32-bit floats.
StreamFormat tapFormat() {
  constexpr std::uint32_t linearPCM = fourCharacterCode("lpcm");
  constexpr std::uint32_t nativeFloatPacked = 0x9;
  return {48000.0, linearPCM, nativeFloatPacked, 8, 1, 8, 2, 32};
}

std::string valueText(const PropertyValue& value) {
  if (const auto* scalar = std::get_if<float>(&value)) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f", static_cast<double>(*scalar));
    return text.data();
  }
  if (const auto* rate = std::get_if<double>(&value)) {
    return std::to_string(std::lround(*rate));
  }
  if (const auto* number = std::get_if<std::uint32_t>(&value)) {
    return std::to_string(*number);
  }
  return "a value of another type";
}

std::string selectorText(const PropertyAddress& address) {
  switch (address.selector) {
    case kAudioDevicePropertyVolumeScalar:
      return "volume " + std::to_string(address.element);
    case kAudioDevicePropertyMute:
      return "mute";
    case kAudioDevicePropertyNominalSampleRate:
      return "rate";
    default:
      return "property";
  }
}

}  // namespace

// Reading

SimulatedHardware::PropertyResult SimulatedHardware::read(AudioObjectID object,
                                                          const PropertyAddress& address) const {
  if (object == kAudioObjectSystemObject) {
    return readSystem(address);
  }
  if (const auto device = devices_.find(object); device != devices_.end()) {
    return readDevice(device->second, address);
  }
  if (const auto process = processes_.find(object); process != processes_.end()) {
    return readProcess(process->second, address);
  }
  if (lostLoopback_ && object == lostLoopback_->first) {
    return readLevel(lostLoopback_->second, address);
  }
  if (!taps_.contains(object)) {
    return {kAudioHardwareBadObjectError, {}};
  }
  if (address.selector == kAudioTapPropertyFormat) {
    return {kFound, tapFormat()};
  }
  return {kAudioHardwareUnknownPropertyError, {}};
}

SimulatedHardware::PropertyResult SimulatedHardware::readSystem(
    const PropertyAddress& address) const {
  switch (address.selector) {
    case kAudioHardwarePropertyDevices:
      return {kFound, idsOf(devices_)};
    case kAudioHardwarePropertyDefaultOutputDevice:
      return {kFound, std::uint32_t{defaultOutput_}};
    case kAudioHardwarePropertyProcessObjectList:
      return {kFound, idsOf(processes_)};
    default:
      return {kAudioHardwareUnknownPropertyError, {}};
  }
}

SimulatedHardware::PropertyResult SimulatedHardware::readDevice(
    const Device& device, const PropertyAddress& address) const {
  const DeviceDescription& description = device.description;
  switch (address.selector) {
    case kAudioDevicePropertyDeviceUID:
      return {kFound, description.uid};
    case kAudioObjectPropertyName:
      return {kFound, description.name};
    case kAudioDevicePropertyTransportType:
      return {kFound, description.transportType};
    case kAudioDevicePropertyStreamConfiguration:
      return {kFound, streams(device, address.scope)};
    case kAudioDevicePropertyNominalSampleRate:
      return {kFound, description.nominalSampleRate};
    case kAudioDevicePropertyDeviceIsRunning:
      return {kFound, std::uint32_t{isRunning(device) ? 1U : 0U}};
    default:
      return readLevel(description, address);
  }
}

SimulatedHardware::PropertyResult SimulatedHardware::readLevel(const DeviceDescription& description,
                                                               const PropertyAddress& address) {
  const auto control = description.volumes.find(address.element);
  if (address.scope != kAudioObjectPropertyScopeOutput) {
    return {kAudioHardwareUnknownPropertyError, {}};
  }
  if (address.selector == kAudioDevicePropertyVolumeScalar &&
      control != description.volumes.end()) {
    return {kFound, control->second.value};
  }
  if (address.selector == kAudioDevicePropertyMute && description.mute &&
      address.element == kAudioObjectPropertyElementMain) {
    return {kFound, std::uint32_t{*description.mute ? 1U : 0U}};
  }
  return {kAudioHardwareUnknownPropertyError, {}};
}

SimulatedHardware::PropertyResult SimulatedHardware::readProcess(const Process& process,
                                                                 const PropertyAddress& address) {
  switch (address.selector) {
    case kAudioProcessPropertyPID:
      return {kFound, process.description.pid};
    case kAudioProcessPropertyBundleID:
      return {kFound, process.description.bundleID};
    case kAudioProcessPropertyIsRunningOutput:
      return {kFound, std::uint32_t{process.description.isPlaying ? 1U : 0U}};
    default:
      return {kAudioHardwareUnknownPropertyError, {}};
  }
}

/// As on the HAL: members in their order, then the taps.
StreamConfiguration SimulatedHardware::streams(const Device& device, std::uint32_t scope) const {
  StreamConfiguration configuration;
  for (const AudioObjectID id : membersOf(device)) {
    const DeviceDescription& member = devices_.at(id).description;
    const auto& buffers =
        scope == kAudioObjectPropertyScopeInput ? member.inputBuffers : member.outputBuffers;
    configuration.channelsPerBuffer.insert(configuration.channelsPerBuffer.end(), buffers.begin(),
                                           buffers.end());
  }
  if (scope == kAudioObjectPropertyScopeInput) {
    configuration.channelsPerBuffer.insert(configuration.channelsPerBuffer.end(),
                                           device.taps.size(), tapFormat().channelsPerFrame);
  }
  return configuration;
}

bool SimulatedHardware::isRunning(const Device& device) const {
  return std::ranges::any_of(procs_, [&](const auto& keyed) {
    const IOProc& proc = *keyed.second;
    if (!proc.isStarted) {
      return false;
    }
    const auto members = membersOf(devices_.at(proc.device));
    return proc.device == device.id || std::ranges::find(members, device.id) != members.end();
  });
}

// Writing

bool SimulatedHardware::isSettable(AudioObjectID object, const PropertyAddress& address) const {
  if (object == kAudioObjectSystemObject) {
    return address.selector == kAudioHardwarePropertyDefaultOutputDevice;
  }
  const auto device = devices_.find(object);
  if (device == devices_.end()) {
    return false;
  }
  switch (address.selector) {
    case kAudioDevicePropertyVolumeScalar: {
      const auto control = device->second.description.volumes.find(address.element);
      return control != device->second.description.volumes.end() && control->second.isSettable;
    }
    case kAudioDevicePropertyMute:
      return device->second.description.mute.has_value();
    case kAudioDevicePropertyNominalSampleRate:
      return true;
    default:
      return false;
  }
}

OSStatus SimulatedHardware::write(AudioObjectID object, const PropertyAddress& address,
                                  const PropertyValue& value) {
  const PropertyResult current = read(object, address);
  if (current.first != kFound) {
    return current.first;
  }
  if (!isSettable(object, address)) {
    return kAudioHardwareUnsupportedOperationError;
  }
  if (current.second.index() != value.index()) {
    return kAudioHardwareBadPropertySizeError;
  }
  if (object == kAudioObjectSystemObject) {
    return putDefaultOutput(std::get<std::uint32_t>(value));
  }
  const OSStatus status = writeDevice(devices_.at(object), address, value);
  if (status == kFound && read(object, address).second != current.second) {
    notify(object, address);
  }
  return status;
}

OSStatus SimulatedHardware::writeDevice(Device& device, const PropertyAddress& address,
                                        const PropertyValue& value) {
  DeviceDescription& description = device.description;
  if (const auto* scalar = std::get_if<float>(&value)) {
    if (!std::isfinite(*scalar)) {
      return kAudioHardwareIllegalOperationError;
    }
    description.volumes.at(address.element).value = std::max(0.0F, *scalar);
  } else if (const auto* rate = std::get_if<double>(&value)) {
    const auto& accepted = description.acceptedSampleRates;
    if (std::ranges::find(accepted, *rate) == accepted.end()) {
      return kAudioDeviceUnsupportedFormatError;
    }
    description.nominalSampleRate = *rate;
  } else {
    description.mute = std::get<std::uint32_t>(value) != 0;
  }
  return kFound;
}

OSStatus SimulatedHardware::putDefaultOutput(AudioObjectID device) {
  const auto found = devices_.find(device);
  if (found == devices_.end()) {
    return kAudioHardwareBadDeviceError;
  }
  if (streams(found->second, kAudioObjectPropertyScopeOutput).channelsPerBuffer.empty()) {
    return kAudioHardwareIllegalOperationError;
  }
  if (std::exchange(defaultOutput_, device) != device) {
    notify(kAudioObjectSystemObject, {kAudioHardwarePropertyDefaultOutputDevice});
  }
  return kFound;
}

// Telling

void SimulatedHardware::notify(AudioObjectID object, const PropertyAddress& address) {
  const auto fault = faults_.judgeNotification();
  if (!fault) {
    listeners_.notify(object, address);
  } else if (!fault->isLost) {
    later_(fault->delaySeconds, [this, object, address, life = std::weak_ptr(life_)] {
      if (!life.expired()) {
        listeners_.notify(object, address);
      }
    });
  }
}

std::string SimulatedHardware::describe(AudioObjectID object) const {
  const auto device = devices_.find(object);
  return device == devices_.end() ? "object " + std::to_string(object)
                                  : device->second.description.uid;
}

std::string SimulatedHardware::describe(AudioObjectID object, const PropertyAddress& address,
                                        const PropertyValue& value) const {
  const auto* number = std::get_if<std::uint32_t>(&value);
  if (address.selector == kAudioHardwarePropertyDefaultOutputDevice && number != nullptr) {
    return "default output = " + describe(*number);
  }
  return selectorText(address) + " of " + describe(object) + " = " + valueText(value);
}

}  // namespace orvelle
