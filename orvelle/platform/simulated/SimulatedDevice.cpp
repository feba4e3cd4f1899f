#include "orvelle/platform/simulated/SimulatedDevice.h"

#include <utility>

namespace orvelle {

DeviceDescription stereoOutput(std::string uid, std::uint32_t transportType, float volume) {
  DeviceDescription device;
  device.name = uid + " name";
  device.uid = std::move(uid);
  device.transportType = transportType;
  device.outputBuffers = {2};
  device.volumes[kAudioObjectPropertyElementMain].value = volume;
  device.mute = false;
  return device;
}

DeviceDescription headset(std::string uid, float volume) {
  DeviceDescription device =
      stereoOutput(std::move(uid), kAudioDeviceTransportTypeBluetooth, volume);
  device.inputBuffers = {1};
  return device;
}

DeviceDescription loopbackDevice(std::string uid) {
  DeviceDescription device = stereoOutput(std::move(uid), kAudioDeviceTransportTypeVirtual, 1.0F);
  device.inputBuffers = {2};
  device.isLoopback = true;
  return device;
}

float volumeFactor(float scalar) {
  return scalar * scalar * scalar;
}

float outputFactor(const DeviceDescription& device, std::uint32_t channel) {
  if (device.mute.value_or(false)) {
    return 0.0F;
  }
  for (const std::uint32_t element : {channel + 1, kAudioObjectPropertyElementMain}) {
    const auto control = device.volumes.find(element);
    if (control != device.volumes.end()) {
      return volumeFactor(control->second.value);
    }
  }
  return 1.0F;
}

}  // namespace orvelle
