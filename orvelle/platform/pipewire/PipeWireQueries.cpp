// What the PipeWire back end answers to questions.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/pipewire/PipeWireParts.h"
#include "orvelle/platform/pipewire/Volume.h"

namespace orvelle {

using pipewire::ClientProcess;
using pipewire::Device;
using pipewire::Node;

namespace {

constexpr double kLoopbackRate = 48000.0;

bool isLevel(const PropertyAddress& address) {
  return isMainElement(address, kAudioObjectPropertyScopeOutput) &&
         (address.selector == kAudioDevicePropertyVolumeScalar ||
          address.selector == kAudioDevicePropertyMute);
}

OSStatus levelValue(const std::optional<pipewire::ChannelLevel>& level, std::uint32_t selector,
                    PropertyValue& value) {
  if (!level) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (selector == kAudioDevicePropertyMute) {
    value = std::uint32_t{level->mute ? 1U : 0U};
  } else {
    value = pipewire::scalarFromVolumes(level->volumes);
  }
  return kAudioHardwareNoError;
}

}  // namespace

/// Waits: what was looked up before is to be looked up again.
void PipeWireHardware::Parts::learnLevel(AudioObjectID object, const PropertyAddress& address) {
  const Device* device = isLevel(address) ? catalogue.device(object) : nullptr;
  const Node* node = device == nullptr ? nullptr : catalogue.nodeOf(*device);
  if (node != nullptr) {
    volumes.learn(*node);
  }
}

OSStatus PipeWireHardware::Parts::get(AudioObjectID object, const PropertyAddress& address,
                                      PropertyValue& value) {
  if (object == kAudioObjectSystemObject) {
    return getOfSystem(address, value);
  }
  learnLevel(object, address);
  if (const Device* device = catalogue.device(object)) {
    return getOfDevice(*device, address, value);
  }
  if (const ClientProcess* process = processes.process(object)) {
    return getOfProcess(*process, address, value);
  }
  if (taps.contains(object)) {
    return getOfTap(object, address, value);
  }
  if (lostLoopback && object == lostLoopback->id) {
    return getOfLostLoopback(address, value);
  }
  return getOfAggregate(object, address, value);
}

OSStatus PipeWireHardware::Parts::getOfSystem(const PropertyAddress& address,
                                              PropertyValue& value) const {
  if (address == PropertyAddress{kAudioHardwarePropertyDevices}) {
    std::vector<AudioObjectID> ids;
    for (const Device& device : catalogue.devices()) {
      ids.push_back(device.id);
    }
    value = std::move(ids);
    return kAudioHardwareNoError;
  }
  if (address == PropertyAddress{kAudioHardwarePropertyDefaultOutputDevice}) {
    value = std::uint32_t{defaultOutputID()};
    return kAudioHardwareNoError;
  }
  if (address == PropertyAddress{kAudioHardwarePropertyProcessObjectList}) {
    std::vector<AudioObjectID> ids;
    for (const ClientProcess& process : processes.processes()) {
      ids.push_back(process.id);
    }
    value = std::move(ids);
    return kAudioHardwareNoError;
  }
  return kAudioHardwareUnknownPropertyError;
}

OSStatus PipeWireHardware::Parts::getOfProcess(const ClientProcess& process,
                                               const PropertyAddress& address,
                                               PropertyValue& value) const {
  if (!isMainElement(address, kAudioObjectPropertyScopeGlobal)) {
    return kAudioHardwareUnknownPropertyError;
  }
  switch (address.selector) {
    case kAudioProcessPropertyPID:
      value = process.pid;
      return kAudioHardwareNoError;
    case kAudioProcessPropertyBundleID:
      value = process.bundleID;
      return kAudioHardwareNoError;
    case kAudioObjectPropertyName:
      value = process.name;
      return kAudioHardwareNoError;
    case kAudioProcessPropertyIsRunningOutput:
      value = std::uint32_t{processes.playing().contains(process.id) ? 1U : 0U};
      return kAudioHardwareNoError;
    default:
      return kAudioHardwareUnknownPropertyError;
  }
}

OSStatus PipeWireHardware::Parts::getOfTap(AudioObjectID tap, const PropertyAddress& address,
                                           PropertyValue& value) {
  if (address != PropertyAddress{kAudioTapPropertyFormat}) {
    return kAudioHardwareUnknownPropertyError;
  }
  constexpr std::uint32_t linearPCM = fourCharacterCode("lpcm");
  constexpr std::uint32_t nativeFloatPacked = 0x9;
  const Node* node = session->nodeNamed(taps.nodeName(tap));
  const double rate = node == nullptr ? 0.0 : rates.read(*node);
  value = StreamFormat{rate, linearPCM, nativeFloatPacked, 8, 1, 8, 2, 32};
  return kAudioHardwareNoError;
}

OSStatus PipeWireHardware::Parts::getOfAggregate(AudioObjectID object,
                                                 const PropertyAddress& address,
                                                 PropertyValue& value) const {
  const AggregateDescription* description = aggregates.description(object);
  if (description == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  if (address == PropertyAddress{kAudioDevicePropertyDeviceUID}) {
    value = description->uid;
  } else if (address == PropertyAddress{kAudioObjectPropertyName}) {
    value = description->name;
  } else if (address == PropertyAddress{kAudioDevicePropertyTransportType}) {
    value = kAudioDeviceTransportTypeAggregate;
  } else if (address == PropertyAddress{kAudioDevicePropertyDeviceIsRunning}) {
    value = std::uint32_t{aggregates.isRunning(object) ? 1U : 0U};
  } else {
    return kAudioHardwareUnknownPropertyError;
  }
  return kAudioHardwareNoError;
}

OSStatus PipeWireHardware::Parts::getOfDevice(const Device& device, const PropertyAddress& address,
                                              PropertyValue& value) {
  const Node* node = catalogue.nodeOf(device);
  if (address.selector == kAudioDevicePropertyStreamConfiguration) {
    return getChannels(device, address.scope, value);
  }
  if (isMainElement(address, kAudioObjectPropertyScopeOutput)) {
    return getLevel(node, address.selector, value);
  }
  if (!isMainElement(address, kAudioObjectPropertyScopeGlobal)) {
    return kAudioHardwareUnknownPropertyError;
  }
  switch (address.selector) {
    case kAudioDevicePropertyDeviceUID:
      value = catalogue.uid(device);
      return kAudioHardwareNoError;
    case kAudioObjectPropertyName:
      value = catalogue.name(device);
      return kAudioHardwareNoError;
    case kAudioDevicePropertyTransportType:
      value = catalogue.transport(device);
      return kAudioHardwareNoError;
    case kAudioDevicePropertyDeviceIsRunning:
      value = std::uint32_t{node != nullptr && node->isRunning ? 1U : 0U};
      return kAudioHardwareNoError;
    case kAudioDevicePropertyNominalSampleRate:
      value = node == nullptr ? kLoopbackRate : rates.read(*node);
      return kAudioHardwareNoError;
    default:
      return kAudioHardwareUnknownPropertyError;
  }
}

OSStatus PipeWireHardware::Parts::getLevel(const Node* node, std::uint32_t selector,
                                           PropertyValue& value) const {
  if (selector != kAudioDevicePropertyVolumeScalar && selector != kAudioDevicePropertyMute) {
    return kAudioHardwareUnknownPropertyError;
  }
  // A loopback whose node is not there yet has the level that the node will come with.
  return levelValue(
      node == nullptr ? pipewire::ChannelLevel{{1.0F, 1.0F}, {}, false} : volumes.level(*node),
      selector, value);
}

OSStatus PipeWireHardware::Parts::getOfLostLoopback(const PropertyAddress& address,
                                                    PropertyValue& value) const {
  return isLevel(address) ? levelValue(lostLoopback->level, address.selector, value)
                          : kAudioHardwareUnknownPropertyError;
}

OSStatus PipeWireHardware::Parts::getChannels(const Device& device, std::uint32_t scope,
                                              PropertyValue& value) const {
  if (scope != kAudioObjectPropertyScopeInput && scope != kAudioObjectPropertyScopeOutput) {
    return kAudioHardwareUnknownPropertyError;
  }
  const pipewire::ChannelCounts counts = catalogue.channels(device);
  const std::uint32_t count =
      scope == kAudioObjectPropertyScopeInput ? counts.inputs : counts.outputs;
  StreamConfiguration configuration;
  if (count != 0) {
    configuration.channelsPerBuffer.push_back(count);
  }
  value = std::move(configuration);
  return kAudioHardwareNoError;
}

}  // namespace orvelle
