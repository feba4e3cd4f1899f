#include "orvelle/HAL.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "orvelle/PropertyReading.h"

namespace orvelle {

namespace {

constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};
constexpr PropertyAddress kDefaultOutput{kAudioHardwarePropertyDefaultOutputDevice};
constexpr PropertyAddress kNominalSampleRate{kAudioDevicePropertyNominalSampleRate};

/// A device has its volume on the main element, on the two first channels, or on all three.
constexpr std::array<std::uint32_t, 3> kVolumeElements = {kAudioObjectPropertyElementMain, 1, 2};

/// Hardware rounds to the steps that it has.
constexpr float kVolumeTolerance = 0.005F;

constexpr PropertyAddress outputAddress(std::uint32_t selector, std::uint32_t element) {
  return {selector, kAudioObjectPropertyScopeOutput, element};
}

}  // namespace

std::string_view transportName(std::uint32_t transportType) {
  switch (transportType) {
    case kAudioDeviceTransportTypeBluetooth:
    case kAudioDeviceTransportTypeBluetoothLE:
      return "Bluetooth";
    case kAudioDeviceTransportTypeBuiltIn:
      return "Built-in";
    case kAudioDeviceTransportTypeDisplayPort:
      return "DisplayPort";
    case kAudioDeviceTransportTypeHDMI:
      return "HDMI";
    case kAudioDeviceTransportTypeUSB:
      return "USB";
    default:
      return "Other";
  }
}

std::vector<AudioObjectID> HAL::allDeviceIDs() const {
  return readList<std::vector<AudioObjectID>>(hardware_, kAudioObjectSystemObject, kDevices)
      .value_or(std::vector<AudioObjectID>{});
}

std::vector<AudioObjectID> HAL::foreignDeviceIDs() const {
  std::vector<AudioObjectID> ids = allDeviceIDs();
  std::erase_if(ids, [this](AudioObjectID id) {
    return string(id, kAudioDevicePropertyDeviceUID).starts_with(kOwnUIDPrefix);
  });
  return ids;
}

std::string HAL::string(AudioObjectID id, std::uint32_t selector) const {
  return readProperty<std::string>(hardware_, id, {selector}).value_or(std::string{});
}

int HAL::channelCount(AudioObjectID id, std::uint32_t scope) const {
  const auto configuration = readList<StreamConfiguration>(
      hardware_, id, {kAudioDevicePropertyStreamConfiguration, scope});
  int channels = 0;
  if (configuration) {
    for (const std::uint32_t bufferChannels : configuration->channelsPerBuffer) {
      channels += static_cast<int>(bufferChannels);
    }
  }
  return channels;
}

AudioDeviceInfo HAL::describe(AudioObjectID id) const {
  AudioDeviceInfo info;
  info.id = id;
  info.uid = string(id, kAudioDevicePropertyDeviceUID);
  info.name = string(id, kAudioObjectPropertyName);
  info.inputChannels = channelCount(id, kAudioObjectPropertyScopeInput);
  info.outputChannels = channelCount(id, kAudioObjectPropertyScopeOutput);
  info.transportType =
      readProperty<std::uint32_t>(hardware_, id, {kAudioDevicePropertyTransportType})
          .value_or(kAudioDeviceTransportTypeUnknown);
  return info;
}

std::vector<AudioDeviceInfo> HAL::allDevices() const {
  std::vector<AudioDeviceInfo> devices;
  for (const AudioObjectID id : allDeviceIDs()) {
    devices.push_back(describe(id));
  }
  return devices;
}

std::optional<AudioDeviceInfo> HAL::device(std::string_view uid) const {
  for (const AudioObjectID id : allDeviceIDs()) {
    if (string(id, kAudioDevicePropertyDeviceUID) == uid) {
      return describe(id);
    }
  }
  return std::nullopt;
}

std::vector<AudioDeviceInfo> HAL::realOutputs() const {
  std::vector<AudioDeviceInfo> outputs = allDevices();
  std::erase_if(outputs, [](const AudioDeviceInfo& device) {
    return device.outputChannels < 1 || device.inputChannels >= 1;
  });
  return outputs;
}

AudioObjectID HAL::defaultOutput() const {
  return readProperty<std::uint32_t>(hardware_, kAudioObjectSystemObject, kDefaultOutput)
      .value_or(kAudioObjectUnknown);
}

OSStatus HAL::setDefaultOutput(AudioObjectID id) const {
  return hardware_.setPropertyData(kAudioObjectSystemObject, kDefaultOutput,
                                   PropertyValue(std::uint32_t{id}));
}

std::optional<float> HAL::outputVolume(AudioObjectID id) const {
  for (const std::uint32_t element : kVolumeElements) {
    const PropertyAddress address = outputAddress(kAudioDevicePropertyVolumeScalar, element);
    if (!hardware_.hasProperty(id, address)) {
      continue;
    }
    if (const auto volume = readProperty<float>(hardware_, id, address)) {
      return volume;
    }
  }
  return std::nullopt;
}

void HAL::setOutputVolume(AudioObjectID id, float volume) const {
  for (const std::uint32_t element : kVolumeElements) {
    setWhereSettable(id, outputAddress(kAudioDevicePropertyVolumeScalar, element), volume);
  }
}

bool HAL::hasOutputVolume(AudioObjectID id, float volume) const {
  return outputVolume(id) && std::ranges::all_of(kVolumeElements, [&](std::uint32_t element) {
           const PropertyAddress address = outputAddress(kAudioDevicePropertyVolumeScalar, element);
           if (!isSettable(id, address)) {
             return true;
           }
           const auto current = readProperty<float>(hardware_, id, address);
           return current && std::abs(*current - volume) <= kVolumeTolerance;
         });
}

bool HAL::hasOutputVolumeOnAnyElement(AudioObjectID id, float volume) const {
  return std::ranges::any_of(kVolumeElements, [&](std::uint32_t element) {
    const auto current = readProperty<float>(
        hardware_, id, outputAddress(kAudioDevicePropertyVolumeScalar, element));
    return current && std::abs(*current - volume) <= kVolumeTolerance;
  });
}

std::optional<bool> HAL::outputMute(AudioObjectID id) const {
  const PropertyAddress address =
      outputAddress(kAudioDevicePropertyMute, kAudioObjectPropertyElementMain);
  if (!hardware_.hasProperty(id, address)) {
    return std::nullopt;
  }
  const auto mute = readProperty<std::uint32_t>(hardware_, id, address);
  return mute ? std::optional<bool>(*mute != 0) : std::nullopt;
}

void HAL::setOutputMute(AudioObjectID id, bool mute) const {
  setWhereSettable(id, outputAddress(kAudioDevicePropertyMute, kAudioObjectPropertyElementMain),
                   std::uint32_t{mute ? 1U : 0U});
}

double HAL::nominalSampleRate(AudioObjectID id) const {
  return readProperty<double>(hardware_, id, kNominalSampleRate).value_or(0.0);
}

OSStatus HAL::setNominalSampleRate(AudioObjectID id, double sampleRate) const {
  return hardware_.setPropertyData(id, kNominalSampleRate, sampleRate);
}

void HAL::observeDeviceListChanges(std::function<void()> handler) const {
  ListenerToken token = 0;  // kept for the rest of the run: never removed
  hardware_.addPropertyListener(kAudioObjectSystemObject, kDevices, std::move(handler), token);
}

void HAL::observeDefaultOutputChanges(std::function<void(const AudioDeviceInfo&)> handler) const {
  ListenerToken token = 0;  // kept for the rest of the run: never removed
  hardware_.addPropertyListener(
      kAudioObjectSystemObject, kDefaultOutput,
      [hal = *this, handler = std::move(handler)] { handler(hal.describe(hal.defaultOutput())); },
      token);
}

bool HAL::isSettable(AudioObjectID id, const PropertyAddress& address) const {
  bool settable = false;
  return hardware_.hasProperty(id, address) &&
         hardware_.isPropertySettable(id, address, settable) == kAudioHardwareNoError && settable;
}

void HAL::setWhereSettable(AudioObjectID id, const PropertyAddress& address,
                           const PropertyValue& value) const {
  if (isSettable(id, address)) {
    hardware_.setPropertyData(id, address, value);
  }
}

}  // namespace orvelle
