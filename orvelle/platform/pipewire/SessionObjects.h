// What the back end keeps in mind of the session's objects.
#pragma once

#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle::pipewire {

/// This program's streams, this instance's and others'.
inline constexpr std::string_view kOwnNodesPrefix = "app.orvelle.";

using Properties = std::map<std::string, std::string, std::less<>>;

/// The value of a property; empty when there is none.
inline std::string_view valueOf(const Properties& properties, std::string_view key) {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string_view{} : std::string_view(found->second);
}

/// A property that is a number; the library's invalid id when it is none.
inline std::uint32_t numberOf(const Properties& properties, std::string_view key) {
  const std::string_view text = valueOf(properties, key);
  std::uint32_t number = UINT32_MAX;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// Volume and mute of a node or route. Volumes are linear factors, one a channel.
struct ChannelLevel {
  std::vector<float> volumes;
  std::vector<std::uint32_t> channelMap;
  bool mute = false;

  friend bool operator==(const ChannelLevel&, const ChannelLevel&) = default;
};

struct Node {
  std::uint32_t id = 0;  ///< of the session, used anew after removal
  Properties properties;
  bool hasInfo = false;
  bool isRunning = false;
  bool hasRun = false;                ///< while we watched, or just before; false tells nothing
  std::optional<ChannelLevel> level;  ///< as the node itself applies it

  [[nodiscard]] std::string_view name() const { return valueOf(properties, "node.name"); }
  [[nodiscard]] std::string_view mediaClass() const { return valueOf(properties, "media.class"); }
};

/// A program's connection to the session.
struct Client {
  std::uint32_t id = 0;
  Properties properties;
  bool hasInfo = false;
};

/// One value of a metadata object, with the type that whoever set it gave it.
struct MetadataEntry {
  std::string type;
  std::string value;

  friend bool operator==(const MetadataEntry&, const MetadataEntry&) = default;
};

/// The path through a sound card that is in use for one of its devices, with its hardware volume.
struct Route {
  std::int32_t index = 0;
  std::int32_t device = 0;
  std::optional<ChannelLevel> level;
};

/// A sound card: what the session calls a device.
struct Card {
  std::uint32_t id = 0;
  Properties properties;
  std::map<std::int32_t, Route> routes;  ///< by the card's device number
};

/// One channel of a node.
struct Port {
  std::uint32_t id = 0;
  std::uint32_t node = 0;
  std::uint32_t index = 0;
  bool isInput = false;
  std::string channel;
};

struct Link {
  std::uint32_t outputNode = 0;
  std::uint32_t inputNode = 0;
};

}  // namespace orvelle::pipewire
