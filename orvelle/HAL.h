// Questions about audio devices. Nothing here keeps state, and nothing fails loudly: what cannot be
// read is 0, empty or absent.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// One audio device as it stood when it was asked. Never cached.
struct AudioDeviceInfo {
  AudioObjectID id = kAudioObjectUnknown;
  std::string uid;
  std::string name;
  int inputChannels = 0;
  int outputChannels = 0;
  std::uint32_t transportType = kAudioDeviceTransportTypeUnknown;  ///< four-character code

  friend bool operator==(const AudioDeviceInfo&, const AudioDeviceInfo&) = default;
};

/// What the uids of this program's own aggregates begin with.
inline constexpr std::string_view kOwnUIDPrefix = "app.orvelle.";

/// The display text of a transport code.
std::string_view transportName(std::uint32_t transportType);

/// Queries and small changes over the hardware interface. Any thread but the real-time one.
class HAL {
 public:
  explicit HAL(AudioHardware& hardware) : hardware_(hardware) {}

  /// In order of appearance.
  [[nodiscard]] std::vector<AudioObjectID> allDeviceIDs() const;
  /// The same without this program's own aggregates: making one is no news to whoever makes it.
  [[nodiscard]] std::vector<AudioObjectID> foreignDeviceIDs() const;
  /// A text property of global scope; empty when it cannot be read.
  [[nodiscard]] std::string string(AudioObjectID id, std::uint32_t selector) const;
  /// Channels over all buffers of the scope (input or output).
  [[nodiscard]] int channelCount(AudioObjectID id, std::uint32_t scope) const;

  /// The record of any id; an unreadable device gives an empty one that still carries the id.
  [[nodiscard]] AudioDeviceInfo describe(AudioObjectID id) const;
  [[nodiscard]] std::vector<AudioDeviceInfo> allDevices() const;
  /// The first device with exactly this uid.
  [[nodiscard]] std::optional<AudioDeviceInfo> device(std::string_view uid) const;
  /// Devices with outputs and no inputs: what a boost may drive. A loopback, or a headset with a
  /// microphone, is none of them.
  [[nodiscard]] std::vector<AudioDeviceInfo> realOutputs() const;

  /// 0 when it cannot be read.
  [[nodiscard]] AudioObjectID defaultOutput() const;
  OSStatus setDefaultOutput(AudioObjectID id) const;

  /// Volume 0..1 (more on devices that amplify), from the main element or the first that has one.
  [[nodiscard]] std::optional<float> outputVolume(AudioObjectID id) const;
  /// Written to the main element and to channels 1 and 2, wherever it is settable.
  void setOutputVolume(AudioObjectID id, float volume) const;
  /// Whether `setOutputVolume` has taken: the device has a volume, and every settable one stands
  /// within half a percent.
  [[nodiscard]] bool hasOutputVolume(AudioObjectID id, float volume) const;
  /// Whether one of them stands there, settable or not.
  [[nodiscard]] bool hasOutputVolumeOnAnyElement(AudioObjectID id, float volume) const;
  /// Absent where the device has no mute switch.
  [[nodiscard]] std::optional<bool> outputMute(AudioObjectID id) const;
  void setOutputMute(AudioObjectID id, bool mute) const;

  /// Hz; 0 when it cannot be read.
  [[nodiscard]] double nominalSampleRate(AudioObjectID id) const;
  OSStatus setNominalSampleRate(AudioObjectID id, double sampleRate) const;

  /// Calls `handler` on the main thread after the device list has changed, for the rest of the run.
  /// Register once, and hold the owner weakly.
  void observeDeviceListChanges(std::function<void()> handler) const;
  /// The same for the default output, with the record of the new one, read afresh.
  void observeDefaultOutputChanges(std::function<void(const AudioDeviceInfo&)> handler) const;

 private:
  [[nodiscard]] bool isSettable(AudioObjectID id, const PropertyAddress& address) const;
  void setWhereSettable(AudioObjectID id, const PropertyAddress& address,
                        const PropertyValue& value) const;

  AudioHardware& hardware_;
};

}  // namespace orvelle
