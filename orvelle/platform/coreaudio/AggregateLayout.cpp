#include "orvelle/platform/coreaudio/AggregateLayout.h"

#include <algorithm>

#include "orvelle/platform/coreaudio/CallbackSlot.h"
#include "orvelle/platform/coreaudio/PropertyCodec.h"

namespace orvelle::coreaudio {

namespace {

std::size_t bufferCount(AudioObjectID halDevice, std::uint32_t scope) {
  return streamsOf(halDevice, scope).channelsPerBuffer.size();
}

}  // namespace

AggregateLayout layoutOf(const AggregateDescription& description) {
  AggregateLayout layout;
  for (const SubDevice& member : description.subdevices) {
    const AudioObjectID device = deviceWithUID(member.uid);
    const std::size_t firstInput = layout.inputs;
    layout.inputs += bufferCount(device, kAudioObjectPropertyScopeInput);
    layout.outputs += bufferCount(device, kAudioObjectPropertyScopeOutput);
    if (member.uid == description.master) {
      const std::size_t end = std::min(layout.inputs, CallbackSlot::mostBuffers);
      for (std::size_t input = firstInput; input < end; ++input) {
        layout.droppedInputs |= 1U << input;
      }
    } else if (isLoopback(device).value_or(false)) {
      layout.loopback = device;
      layout.isOutOfReach = firstInput >= CallbackSlot::mostBuffers;
    }
  }
  layout.isOutOfReach = layout.isOutOfReach ||
                        (!description.taps.empty() && layout.inputs >= CallbackSlot::mostBuffers);
  return layout;
}

bool isReady(AudioObjectID hal, const AggregateDescription& description,
             const AggregateLayout& layout) {
  PropertyValue uid;
  readValue(hal, {kAudioDevicePropertyDeviceUID}, uid);
  return uid == PropertyValue(description.uid) &&
         bufferCount(hal, kAudioObjectPropertyScopeInput) >= layout.inputs &&
         bufferCount(hal, kAudioObjectPropertyScopeOutput) >= layout.outputs;
}

bool isComplete(AudioObjectID hal, const AggregateDescription& description,
                const AggregateLayout& layout) {
  return isReady(hal, description, layout) && bufferCount(hal, kAudioObjectPropertyScopeInput) >=
                                                  layout.inputs + description.taps.size();
}

std::optional<bool> isLoopback(AudioObjectID halDevice) {
  PropertyValue transport;
  const OSStatus status = readValue(halDevice, {kAudioDevicePropertyTransportType}, transport);
  if (status != kAudioHardwareNoError && status != kAudioHardwareUnknownPropertyError) {
    return std::nullopt;
  }
  if (transport != PropertyValue(kAudioDeviceTransportTypeVirtual)) {
    return false;
  }
  for (const std::uint32_t scope :
       {kAudioObjectPropertyScopeInput, kAudioObjectPropertyScopeOutput}) {
    PropertyValue value;
    readValue(halDevice, {kAudioDevicePropertyStreamConfiguration, scope}, value);
    const auto* streams = std::get_if<StreamConfiguration>(&value);
    if (streams == nullptr) {
      return std::nullopt;
    }
    if (streams->channelsPerBuffer.empty()) {
      return false;
    }
  }
  return true;
}

}  // namespace orvelle::coreaudio
