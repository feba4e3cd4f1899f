#include "orvelle/platform/coreaudio/AggregateLayout.h"

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
      for (std::size_t input = firstInput; input < layout.inputs; ++input) {
        layout.droppedInputs |= 1U << input;
      }
    } else if (isLoopback(device)) {
      layout.loopback = device;
    }
  }
  layout.inputs += description.taps.size();
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

bool isLoopback(AudioObjectID halDevice) {
  PropertyValue transport;
  readValue(halDevice, {kAudioDevicePropertyTransportType}, transport);
  return transport == PropertyValue(kAudioDeviceTransportTypeVirtual) &&
         bufferCount(halDevice, kAudioObjectPropertyScopeInput) > 0 &&
         bufferCount(halDevice, kAudioObjectPropertyScopeOutput) > 0;
}

}  // namespace orvelle::coreaudio
