#include "orvelle/platform/pipewire/ProcessTaps.h"

#include <pipewire/pipewire.h>

#include <algorithm>
#include <array>
#include <utility>

namespace orvelle::pipewire {

namespace {

constexpr std::string_view kTapPrefix = "app.orvelle.tap.";
constexpr double kCreationSeconds = 1.0;
/// A user does not send one stream here and there as often. A program that insists has it.
constexpr int kMostWishes = 100;
/// Some ten times what it takes.
constexpr double kMoveSeconds = 0.1;

constexpr const char* kMetadata = "default";
constexpr const char* kTargetKey = "target.object";
/// By this the session manager sends a stream to the output that it remembers for its application.
constexpr const char* kRememberedKey = "target.node";
/// Where a stream goes when it is given back, for whoever has to do that when we cannot. It lives
/// as long as the stream. Absent: to the default output.
constexpr const char* kFormerTargetKey = "app.orvelle.former.target.object";
/// Names and not numbers: a target of another form would be stored for the application, and pull
/// its next process onto the tap.
constexpr const char* kNameType = "Spa:String";

bool isTap(const std::optional<MetadataEntry>& target) {
  return target && target->value.starts_with(kTapPrefix);
}

/// Where a stream is sent. The target that a dead process's tap has left behind stands for the one
/// that the stream had before.
std::optional<MetadataEntry> targetOf(const Session& session, std::uint32_t stream) {
  auto target = session.metadataEntry(kMetadata, stream, kTargetKey);
  return isTap(target) && session.nodeNamed(target->value) == nullptr
             ? session.metadataEntry(kMetadata, stream, kFormerTargetKey)
             : target;
}

pw_proxy* createSink(const Session& session, const std::string& name) {
  const std::array properties = {
      spa_dict_item{"factory.name", "support.null-audio-sink"},
      spa_dict_item{PW_KEY_NODE_NAME, name.c_str()},
      spa_dict_item{PW_KEY_NODE_DESCRIPTION, "Orvelle Tap"},
      // Internal: no mixer shows it, and the default output never falls to it.
      spa_dict_item{PW_KEY_MEDIA_CLASS, "Audio/Sink/Internal"},
      spa_dict_item{"audio.position", "FL,FR"},
      spa_dict_item{PW_KEY_NODE_VIRTUAL, "true"},
      spa_dict_item{"state.restore-props", "false"},
      // The graph's clock only where nothing real is.
      spa_dict_item{"priority.driver", "1"},
      spa_dict_item{"session.suspend-timeout-seconds", "0"},
  };
  const spa_dict dict{0, properties.size(), properties.data()};
  return static_cast<pw_proxy*>(pw_core_create_object(
      session.core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &dict, 0));
}

}  // namespace

struct ProcessTaps::Tap {
  /// A stream that has been sent to the tap.
  struct Taken {
    /// Where it goes when it is given back; absent: to the default output.
    std::optional<MetadataEntry> target{};
    /// The session has told that it is sent to a tap: every other target from now on is a wish.
    bool hasArrived = false;
    bool isNoted = false;  ///< the session keeps `target`, too
    /// The session manager remembers again what it remembered before.
    bool isRemembered = false;
    int wishes = 0;  ///< how often it has been sent elsewhere meanwhile
  };

  TapDescription description;
  std::string name;
  pw_proxy* proxy = nullptr;
  bool hasSink = false;  ///< when last looked at
  bool isRead = false;
  std::map<std::uint32_t, Taken> streams;  // by node id

  Tap(TapDescription described, std::string nodeName, pw_proxy* node)
      : description(std::move(described)), name(std::move(nodeName)), proxy(node) {}
  Tap(const Tap&) = delete;
  Tap& operator=(const Tap&) = delete;
  ~Tap() { drop(); }

  void drop() {
    if (proxy != nullptr) {
      pw_proxy_destroy(std::exchange(proxy, nullptr));
    }
    streams.clear();
  }

  [[nodiscard]] bool takesStreams() const {
    return isRead || description.muteBehavior == TapMuteBehavior::muted;
  }
  [[nodiscard]] bool taps(AudioObjectID process) const {
    return std::ranges::find(description.processes, process) != description.processes.end();
  }
};

ProcessTaps::ProcessTaps(Session& session, const ProcessCatalogue& processes,
                         std::function<AudioObjectID()> nextID)
    : session_(session), processes_(processes), nextID_(std::move(nextID)) {}

ProcessTaps::~ProcessTaps() {
  for (auto& [id, tap] : taps_) {
    giveBack(*tap);
  }
}

OSStatus ProcessTaps::create(const TapDescription& description, AudioObjectID& tap) {
  if (description.processes.empty() || description.uuid.empty() ||
      find(description.uuid) != nullptr) {
    return kAudioHardwareIllegalOperationError;
  }
  // To be heard on both paths a stream would have to be in two places.
  if (description.muteBehavior == TapMuteBehavior::unmuted) {
    return kAudioHardwareUnsupportedOperationError;
  }
  for (const AudioObjectID process : description.processes) {
    if (processes_.process(process) == nullptr) {
      return kAudioHardwareBadObjectError;
    }
  }
  if (!session_.isConnected()) {
    return kAudioHardwareNotReadyError;
  }
  const std::string name = std::string(kTapPrefix) + description.uuid;
  pw_proxy* proxy = createSink(session_, name);
  if (proxy == nullptr) {
    return kAudioHardwareUnspecifiedError;
  }
  auto created = std::make_unique<Tap>(description, name, proxy);
  const bool isThere = session_.waitUntil(
      [&] {
        const Node* node = session_.nodeNamed(name);
        return node != nullptr && session_.hasStereoPorts(*node);
      },
      kCreationSeconds);
  if (!isThere) {
    return kAudioHardwareNotReadyError;
  }
  tap = nextID_();
  taps_[tap] = std::move(created);
  update();
  return kAudioHardwareNoError;
}

OSStatus ProcessTaps::destroy(AudioObjectID tap) {
  const auto ended = taps_.extract(tap);
  if (ended.empty()) {
    return kAudioHardwareBadObjectError;
  }
  giveBack(*ended.mapped());
  session_.waitUntil([&] { return areStreamsIn(*ended.mapped(), false); }, kMoveSeconds);
  return kAudioHardwareNoError;
}

const ProcessTaps::Tap* ProcessTaps::find(std::string_view uuid) const {
  const auto found = std::ranges::find_if(
      taps_, [&](const auto& entry) { return entry.second->description.uuid == uuid; });
  return found == taps_.end() ? nullptr : found->second.get();
}

std::string ProcessTaps::nodeName(std::string_view uuid) const {
  const Tap* tap = find(uuid);
  return tap == nullptr ? std::string{} : tap->name;
}

std::string ProcessTaps::nodeName(AudioObjectID tap) const {
  const auto found = taps_.find(tap);
  return found == taps_.end() ? std::string{} : found->second->name;
}

void ProcessTaps::setRead(const std::set<std::string>& uuids) {
  for (auto& [id, tap] : taps_) {
    tap->isRead = uuids.contains(tap->description.uuid);
  }
  update();
}

void ProcessTaps::update() {
  // Without a session manager nothing is known, least of all that somebody has a wish.
  if (!session_.hasMetadata(kMetadata)) {
    return;
  }
  for (auto& [id, tap] : taps_) {
    keepSink(*tap);
    std::erase_if(tap->streams,
                  [this](const auto& entry) { return session_.node(entry.first) == nullptr; });
    if (!tap->takesStreams() || !tap->hasSink) {
      giveBack(*tap);
      continue;
    }
    for (const Node* node : session_.nodes()) {
      if (tap->taps(processes_.processOf(*node))) {
        take(*tap, *node);
      }
    }
  }
}

/// Makes the sink anew after a loss of the connection, and when another program has removed it.
void ProcessTaps::keepSink(Tap& tap) {
  const bool isThere = session_.nodeNamed(tap.name) != nullptr;
  if (std::exchange(tap.hasSink, isThere) && !isThere) {
    tap.drop();
  }
  if (tap.proxy == nullptr && session_.isConnected()) {
    tap.proxy = createSink(session_, tap.name);
  }
}

/// Sends the stream to the tap, also when somebody has sent it elsewhere meanwhile: that is where
/// it goes when it is given back. Another tap's stream is left alone: two that take it from each
/// other would never end.
void ProcessTaps::take(Tap& tap, const Node& stream) {
  const auto target = targetOf(session_, stream.id);
  const auto [entry, isNew] =
      tap.streams.try_emplace(stream.id, Tap::Taken{isTap(target) ? std::nullopt : target});
  Tap::Taken& taken = entry->second;
  if (isTap(target)) {
    taken.hasArrived = true;
    taken.isRemembered = taken.isRemembered || target->value != tap.name || remember(stream.id);
    return;
  }
  // Until the session has told of our order, the target may still be the one from before.
  const bool isWish = !isNew && (taken.hasArrived || target != taken.target);
  taken.target = target;
  if (isNew || (isWish && ++taken.wishes <= kMostWishes)) {
    taken.hasArrived = false;
    if (target || taken.isNoted) {
      set(stream.id, kFormerTargetKey, target);
      taken.isNoted = target.has_value();
    }
    taken.isRemembered = send(stream.id, MetadataEntry{kNameType, tap.name});
  }
}

void ProcessTaps::drop() {
  for (auto& [id, tap] : taps_) {
    tap->drop();
  }
}

void ProcessTaps::giveBack(Tap& tap) {
  for (const auto& [stream, taken] : std::exchange(tap.streams, {})) {
    const auto target = session_.metadataEntry(kMetadata, stream, kTargetKey);
    const bool isSentElsewhere = taken.hasArrived && (!target || target->value != tap.name);
    if (!isSentElsewhere) {
      send(stream, taken.target);
    }
    if (taken.isNoted) {
      set(stream, kFormerTargetKey, std::nullopt);
    }
  }
}

void ProcessTaps::releaseAbandoned() {
  for (const Node* stream : session_.nodes()) {
    const auto target = session_.metadataEntry(kMetadata, stream->id, kTargetKey);
    if (isTap(target) && !session_.isOwned(target->value)) {
      send(stream->id, session_.metadataEntry(kMetadata, stream->id, kFormerTargetKey));
      set(stream->id, kFormerTargetKey, std::nullopt);
    }
  }
}

/// Absent: to where it would go by itself. Says what `remember` says.
bool ProcessTaps::send(std::uint32_t stream, const std::optional<MetadataEntry>& target) {
  set(stream, kTargetKey, target);
  return remember(stream);
}

/// The session manager forgets the output that it remembers for the application's next streams when
/// it hears of a target that is a name, or of none. Says whether there is such an output.
bool ProcessTaps::remember(std::uint32_t stream) {
  const auto remembered = session_.metadataEntry(kMetadata, stream, kRememberedKey);
  if (remembered) {
    // Only a change makes it take note.
    set(stream, kRememberedKey, std::nullopt);
    set(stream, kRememberedKey, remembered);
  }
  return remembered.has_value();
}

/// Absent: removes the entry.
void ProcessTaps::set(std::uint32_t stream, const char* key,
                      const std::optional<MetadataEntry>& entry) {
  session_.setMetadata(kMetadata, stream, key, entry ? entry->type.c_str() : nullptr,
                       entry ? entry->value.c_str() : nullptr);
}

void ProcessTaps::waitForStreams(std::string_view uuid) {
  session_.waitUntil(
      [&] {
        const Tap* tap = find(uuid);
        return tap == nullptr || areStreamsIn(*tap, tap->takesStreams());
      },
      kMoveSeconds);
}

/// A stream without any link is paused, or has nowhere to go.
bool ProcessTaps::areStreamsIn(const Tap& tap, bool wanted) const {
  const Node* sink = session_.nodeNamed(tap.name);
  return sink == nullptr || std::ranges::all_of(session_.nodes(), [&](const Node* stream) {
           const auto links = session_.linksFrom(stream->id);
           if (!tap.taps(processes_.processOf(*stream)) || links.empty()) {
             return true;
           }
           const bool isInTap = std::ranges::any_of(
               links, [&](const Link& link) { return link.inputNode == sink->id; });
           return isInTap == wanted;
         });
}

}  // namespace orvelle::pipewire
