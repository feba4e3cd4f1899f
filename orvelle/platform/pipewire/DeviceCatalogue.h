// The session's sinks and sources as devices, with ids that are never used twice.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/pipewire/LoopbackNode.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

struct Device {
  AudioObjectID id = kAudioObjectUnknown;
  std::uint32_t node =
      0;  ///< in the session; meaningless for the loopback, whose node comes and goes
  bool isLoopback = false;
};

struct ChannelCounts {
  std::uint32_t inputs = 0;
  std::uint32_t outputs = 0;

  friend bool operator==(const ChannelCounts&, const ChannelCounts&) = default;
};

/// In order of appearance. Our loopback is always listed, as an installed driver would be.
///
/// Session lock held in every call.
class DeviceCatalogue {
 public:
  /// `nextID` hands out object ids.
  DeviceCatalogue(Session& session, LoopbackNode& loopback, std::function<AudioObjectID()> nextID);

  /// Takes over what the session lists now. True when devices or their channels have changed. A new
  /// node becomes a device when it has its channels: before that, the session manager has not done
  /// with it, and would overwrite a volume that is set on it.
  bool update();

  /// Lists the loopback as a new device: what was known of the old one does not hold for it.
  /// Returns the old one's id.
  AudioObjectID renewLoopback();

  [[nodiscard]] const std::vector<Device>& devices() const { return devices_; }
  [[nodiscard]] const Device* device(AudioObjectID id) const;
  [[nodiscard]] const Device* deviceNamed(std::string_view uid) const;

  /// Null for the loopback while its node is not there.
  [[nodiscard]] const Node* nodeOf(const Device& device) const;
  [[nodiscard]] std::string uid(const Device& device) const;
  [[nodiscard]] std::string name(const Device& device) const;
  [[nodiscard]] std::uint32_t transport(const Device& device) const;
  [[nodiscard]] ChannelCounts channels(const Device& device) const;

 private:
  [[nodiscard]] bool isReady(const Node& node);
  void publish(const Node& node);
  [[nodiscard]] bool hasHardwareOutput() const;

  Session& session_;
  LoopbackNode& loopback_;
  std::function<AudioObjectID()> nextID_;
  std::vector<Device> devices_;
  /// Nodes without channels, and whether they have been waited for long enough.
  std::map<std::uint32_t, bool> overdue_;
  /// As last reported, to tell whether anything has changed.
  std::vector<std::pair<AudioObjectID, ChannelCounts>> reported_;
};

}  // namespace orvelle::pipewire
