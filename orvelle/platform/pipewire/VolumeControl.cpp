#include "orvelle/platform/pipewire/VolumeControl.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <memory>
#include <sstream>

#include "orvelle/platform/pipewire/GraphStream.h"
#include "orvelle/platform/pipewire/LoopbackNode.h"
#include "orvelle/platform/pipewire/Volume.h"

namespace orvelle::pipewire {

namespace {

constexpr double kConfirmationSeconds = 0.1;
/// Hardware may take its time to begin.
constexpr double kFirstRunSeconds = 0.5;
/// A cycle is no event that would wake us.
constexpr double kFirstRunStepSeconds = 0.005;
/// The volume is taken in the first cycle and reported after it.
constexpr int kFirstRunCycles = 2;
/// The session manager notes a new volume some milliseconds after it was set, and writes its notes
/// to disk after a second. In between the note is put right.
constexpr double kStoredAgainSeconds = 0.2;

bool isSilent(const ChannelLevel& level) {
  return std::ranges::all_of(level.volumes, [](float volume) { return volume == 0.0F; });
}

/// The name under which the session manager stores a node's volume: by the first of these that
/// the node has.
std::string storageKey(const Node& node) {
  static constexpr std::array kKeys = {"media.role", "application.id", "application.name",
                                       "media.name", "node.name"};
  for (const char* key : kKeys) {
    if (const auto value = valueOf(node.properties, key); !value.empty()) {
      std::string text = "restore.stream.";
      return text.append(node.mediaClass()).append(".").append(key).append(":").append(value);
    }
  }
  return {};
}

std::string storageValue(const ChannelLevel& level) {
  std::ostringstream json;
  json.imbue(std::locale::classic());
  json << "{ \"mute\": " << (level.mute ? "true" : "false") << ", \"volumes\": [";
  for (std::size_t i = 0; i < level.volumes.size(); ++i) {
    json << (i == 0 ? " " : ", ") << level.volumes[i];
  }
  json << " ] }";
  return json.str();
}

}  // namespace

void VolumeControl::learn(const Node& node) {
  const bool isTold = node.hasRun || session_.routeOf(node) != nullptr ||
                      session_.serverVersion().starts_with("0.");
  // The loopback's volume is ours until it runs, and it is not to run for itself.
  if (isTold || !node.level || node.name() == kLoopbackName ||
      !learnt_.emplace(valueOf(node.properties, "object.serial")).second) {
    return;
  }
  const std::string name(node.name());
  const auto cycles = std::make_shared<std::atomic<int>>(0);
  GraphStream silence(session_, {"app.orvelle.volume", "Orvelle Volume", "", name},
                      [cycles](AudioBufferList /*input*/, AudioBufferList /*output*/) {
                        cycles->fetch_add(1, std::memory_order_relaxed);
                      });
  const auto hasRun = [&] {
    silence.linkUp();
    return cycles->load(std::memory_order_relaxed) >= kFirstRunCycles;
  };
  const int attempts = static_cast<int>(kFirstRunSeconds / kFirstRunStepSeconds);
  for (int attempt = 0; attempt < attempts && !hasRun(); ++attempt) {
    session_.waitUntil(hasRun, kFirstRunStepSeconds);
  }
  session_.roundTrip();
}

std::optional<ChannelLevel> VolumeControl::reportedLevel(const Node& node) const {
  const Route* route = session_.routeOf(node);
  return route != nullptr ? route->level : node.level;
}

std::optional<ChannelLevel> VolumeControl::level(const Node& node) const {
  const auto reported = reportedLevel(node);
  const auto found = unreported_.find(node.id);
  return found != unreported_.end() && found->second.reported == reported ? found->second.requested
                                                                          : reported;
}

OSStatus VolumeControl::setScalar(const Node& node, float scalar) {
  const auto current = level(node);
  if (!current) {
    return kAudioHardwareUnknownPropertyError;
  }
  if (!std::isfinite(scalar) || scalar < 0.0F) {
    return kAudioHardwareIllegalOperationError;
  }
  Memory& memory = memories_[std::string(node.name())];
  if (!isSilent(*current) || memory.balance.size() != current->volumes.size()) {
    memory.balance = current->volumes;
  }
  ChannelLevel wanted = *current;
  if (memory.before && scalarFromVolumes(memory.before->volumes) == scalar &&
      memory.before->volumes.size() == current->volumes.size()) {
    wanted.volumes = memory.before->volumes;
  } else {
    wanted.volumes = volumesFromScalar(scalar, memory.balance);
  }
  if (scalarFromVolumes(current->volumes) != scalar) {
    memory.before = current;
  }
  apply(node, wanted);
  return kAudioHardwareNoError;
}

OSStatus VolumeControl::setMute(const Node& node, bool mute) {
  const auto current = level(node);
  if (!current) {
    return kAudioHardwareUnknownPropertyError;
  }
  ChannelLevel wanted = *current;
  wanted.mute = mute;
  apply(node, wanted);
  return kAudioHardwareNoError;
}

void VolumeControl::forgetServer() {
  unreported_.clear();
  learnt_.clear();
}

void VolumeControl::forgetGone() {
  std::erase_if(unreported_,
                [&](const auto& entry) { return session_.node(entry.first) == nullptr; });
}

void VolumeControl::apply(const Node& node, const ChannelLevel& wanted) {
  const auto before = level(node);
  if (before == wanted) {
    return;
  }
  Memory& memory = memories_[std::string(node.name())];
  if (!memory.stored) {
    memory.stored = before;
  }
  // By id from here on: the node may vanish while its answer is awaited.
  const std::uint32_t id = node.id;
  const auto reported = reportedLevel(node);
  if (const Route* route = session_.routeOf(node)) {
    session_.setRouteLevel(node, *route, wanted);
  } else {
    session_.setNodeLevel(id, wanted);
  }
  const bool isConfirmed = session_.waitUntil(
      [&] {
        const Node* present = session_.node(id);
        return present == nullptr || reportedLevel(*present) == wanted ||
               reportedLevel(*present) != reported;
      },
      kConfirmationSeconds);
  const Node* present = session_.node(id);
  unreported_.erase(id);
  if (present == nullptr) {
    return;
  }
  if (!isConfirmed && reported) {
    // Some versions take a volume at once and report it only when the node next runs.
    unreported_[id] = {wanted, *reported};
  }
  keepStored(*present);
}

void VolumeControl::keepStored(const Node& node) {
  if (!keepsStored_) {
    return;
  }
  if (session_.routeOf(node) != nullptr || node.name() == kLoopbackName) {
    return;  // a card's volume was written as not to be saved, the loopback's is the user's
  }
  if (session_.hasMetadata("sm-settings")) {
    return;  // session managers from 0.5 on store what the node has, and take no other word for it
  }
  Memory& memory = memories_[std::string(node.name())];
  if (!memory.stored || level(node) == memory.stored) {
    memory.stored.reset();
    return;
  }
  const std::string key = storageKey(node);
  const std::string value = storageValue(*memory.stored);
  const auto store = [this, key, value] {
    // Setting an entry to the value that it has would go unnoticed.
    session_.setMetadata("route-settings", 0, key.c_str(), nullptr, nullptr);
    session_.setMetadata("route-settings", 0, key.c_str(), "Spa:String:JSON", value.c_str());
  };
  store();
  session_.after(kStoredAgainSeconds, [this, name = std::string(node.name()), store] {
    const auto memoryNow = memories_.find(name);
    if (memoryNow != memories_.end() && memoryNow->second.stored) {
      store();
    }
  });
}

}  // namespace orvelle::pipewire
