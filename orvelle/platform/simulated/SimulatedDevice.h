// What a simulated world is made of: devices, programs that play, and how loud a volume is.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// One element of a device's output volume.
struct VolumeControl {
  float value = 1.0F;  ///< scalar, 0 silence, 1 full, more where the device amplifies
  bool isSettable = true;
};

/// A device as it is plugged in. Unplugging gives it back as it stands, so that it can return.
struct DeviceDescription {
  std::string uid;
  std::string name;
  std::uint32_t transportType = kAudioDeviceTransportTypeBuiltIn;
  std::vector<std::uint32_t> inputBuffers;         ///< channels per buffer
  std::vector<std::uint32_t> outputBuffers;        ///< channels per buffer
  std::map<std::uint32_t, VolumeControl> volumes;  ///< by element: 0 main, 1 and up the channels
  std::optional<bool> mute;                        ///< absent: no mute switch
  double nominalSampleRate = 48000.0;              ///< Hz
  std::vector<double> acceptedSampleRates = {44100.0, 48000.0, 96000.0};  ///< Hz
  /// What is played into its outputs, at its volume, arrives at its inputs.
  bool isLoopback = false;
};

/// Two output channels, a volume on the main element and a mute switch.
DeviceDescription stereoOutput(std::string uid, std::uint32_t transportType, float volume = 0.5F);
/// Two output channels and a microphone.
DeviceDescription headset(std::string uid, float volume = 0.5F);
/// Two in, two out, what goes in comes out.
DeviceDescription loopbackDevice(std::string uid = "OrvelleAudioDevice_UID");

/// The factor that a volume scalar stands for: the cubic scale of mixers, 0.5 is some -18 dB.
float volumeFactor(float scalar);

/// What the listener's end of `channel` is multiplied with. A channel's own element counts where
/// there is one, the main element elsewhere; muted is 0, no control at all is 1.
float outputFactor(const DeviceDescription& device, std::uint32_t channel);

/// Sample of `channel` at `frame` of the world's time.
using Signal = std::function<float(std::int64_t frame, std::uint32_t channel)>;

/// A program that plays.
struct ProcessDescription {
  std::int32_t pid = 0;
  std::string bundleID;
  Signal signal;
  bool isPlaying = true;
  std::string outputUID;  ///< empty: wherever the default output is
};

}  // namespace orvelle
