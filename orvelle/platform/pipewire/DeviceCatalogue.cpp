#include "orvelle/platform/pipewire/DeviceCatalogue.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "orvelle/platform/pipewire/DisplayText.h"
#include "orvelle/platform/pipewire/Transport.h"

namespace orvelle::pipewire {

namespace {

constexpr ChannelCounts kLoopbackChannels{2, 2};
/// Nobody configures channels where no session manager runs.
constexpr double kChannelsSeconds = 0.3;

bool isSink(const Node& node) {
  return node.mediaClass() == "Audio/Sink";
}

bool isDuplex(const Node& node) {
  return node.mediaClass() == "Audio/Duplex";
}

bool isSource(const Node& node) {
  return node.mediaClass() == "Audio/Source" || node.mediaClass() == "Audio/Source/Virtual";
}

bool isDevice(const Node& node) {
  return node.hasInfo && (isSink(node) || isDuplex(node) || isSource(node));
}

/// Ports are the truth; before they are there, what the node announces.
std::uint32_t channelCount(const Session& session, const Node& node, bool input) {
  const auto ports = static_cast<std::uint32_t>(session.ports(node.id, input).size());
  if (ports != 0) {
    return ports;
  }
  const std::string_view announced = valueOf(node.properties, "audio.channels");
  std::uint32_t channels = 0;
  std::from_chars(announced.data(), announced.data() + announced.size(), channels);
  return channels;
}

}  // namespace

DeviceCatalogue::DeviceCatalogue(Session& session, LoopbackNode& loopback,
                                 std::function<AudioObjectID()> nextID)
    : session_(session), loopback_(loopback), nextID_(std::move(nextID)) {
  for (const Node* node : session_.nodes()) {
    publish(*node);
  }
  devices_.push_back({nextID_(), 0, true});
  update();
}

AudioObjectID DeviceCatalogue::renewLoopback() {
  const auto loopback = std::ranges::find(devices_, true, &Device::isLoopback);
  const AudioObjectID former = loopback->id;
  devices_.erase(loopback);
  devices_.push_back({nextID_(), 0, true});
  return former;
}

void DeviceCatalogue::publish(const Node& node) {
  const bool isListed = std::ranges::any_of(
      devices_, [&](const Device& device) { return !device.isLoopback && device.node == node.id; });
  if (!isListed && isDevice(node) && node.name() != kLoopbackName) {
    devices_.push_back({nextID_(), node.id, false});
  }
}

bool DeviceCatalogue::isReady(const Node& node) {
  if (!session_.ports(node.id, true).empty() || !session_.ports(node.id, false).empty()) {
    return true;
  }
  const auto [entry, isNew] = overdue_.emplace(node.id, false);
  if (isNew) {
    session_.after(kChannelsSeconds, [this, id = node.id] {
      if (const auto waited = overdue_.find(id); waited != overdue_.end()) {
        waited->second = true;
        session_.announce(Change::objects);
      }
    });
  }
  return entry->second;
}

bool DeviceCatalogue::update() {
  std::erase_if(devices_, [&](const Device& device) {
    return !device.isLoopback && session_.node(device.node) == nullptr;
  });
  std::erase_if(overdue_, [&](const auto& entry) { return session_.node(entry.first) == nullptr; });
  for (const Node* node : session_.nodes()) {
    if (isDevice(*node) && isReady(*node)) {
      publish(*node);
    }
  }
  std::vector<std::pair<AudioObjectID, ChannelCounts>> current;
  for (const Device& device : devices_) {
    current.emplace_back(device.id, channels(device));
  }
  return std::exchange(reported_, current) != current;
}

const Device* DeviceCatalogue::device(AudioObjectID id) const {
  const auto found = std::ranges::find(devices_, id, &Device::id);
  return found == devices_.end() ? nullptr : &*found;
}

const Device* DeviceCatalogue::deviceNamed(std::string_view uid) const {
  const auto found = std::ranges::find_if(
      devices_, [&](const Device& device) { return this->uid(device) == uid; });
  return found == devices_.end() ? nullptr : &*found;
}

const Node* DeviceCatalogue::nodeOf(const Device& device) const {
  return device.isLoopback ? loopback_.node() : session_.node(device.node);
}

std::string DeviceCatalogue::uid(const Device& device) const {
  if (device.isLoopback) {
    return std::string(kLoopbackName);
  }
  const Node* node = nodeOf(device);
  return node == nullptr ? std::string{} : std::string(node->name());
}

std::string DeviceCatalogue::name(const Device& device) const {
  if (device.isLoopback) {
    return std::string(kLoopbackDescription);
  }
  const Node* node = nodeOf(device);
  if (node == nullptr) {
    return {};
  }
  const std::string_view description = valueOf(node->properties, "node.description");
  return displayText(description.empty() ? node->name() : description);
}

std::uint32_t DeviceCatalogue::transport(const Device& device) const {
  const Node* node = nodeOf(device);
  if (device.isLoopback || node == nullptr) {
    return kAudioDeviceTransportTypeVirtual;
  }
  const Card* card = session_.cardOf(*node);
  return transportOf(node->properties, card == nullptr ? Properties{} : card->properties);
}

ChannelCounts DeviceCatalogue::channels(const Device& device) const {
  const Node* node = nodeOf(device);
  if (device.isLoopback || node == nullptr) {
    return device.isLoopback ? kLoopbackChannels : ChannelCounts{};
  }
  ChannelCounts counts{channelCount(session_, *node, false), channelCount(session_, *node, true)};
  if (isSource(*node)) {
    counts.outputs = 0;
  }
  // A sink's outgoing ports are its monitor. Where that leads nowhere but to recorders, the sink is
  // a real output; otherwise it is a loopback, which must never be taken for one. A machine that
  // has no hardware at all plays through such sinks, and they are its real outputs.
  if (isSink(*node) && (hasDeviceBehind(node->properties) || !hasHardwareOutput())) {
    counts.inputs = 0;
  }
  return counts;
}

bool DeviceCatalogue::hasHardwareOutput() const {
  return std::ranges::any_of(session_.nodes(), [](const Node* node) {
    return (isSink(*node) || isDuplex(*node)) && hasDeviceBehind(node->properties);
  });
}

}  // namespace orvelle::pipewire
