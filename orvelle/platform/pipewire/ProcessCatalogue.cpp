#include "orvelle/platform/pipewire/ProcessCatalogue.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <utility>

#include "orvelle/platform/Process.h"

namespace orvelle::pipewire {

namespace {

bool isPlaybackStream(const Node& node) {
  return node.mediaClass() == "Stream/Output/Audio";
}

std::int32_t processNumber(const Properties& properties, std::string_view key) {
  const std::string_view text = valueOf(properties, key);
  std::int32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return std::max(number, 0);
}

/// The first of these that is told, by the stream itself or by the connection that made it.
std::string told(const Node& stream, const Client& client,
                 std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    for (const Properties* properties : {&stream.properties, &client.properties}) {
      if (const auto value = valueOf(*properties, key); !value.empty()) {
        return std::string(value);
      }
    }
  }
  return {};
}

/// The PulseAudio server connects once for each of its clients; the peer of all is the server.
bool isPulseClient(const Client& client) {
  return valueOf(client.properties, "client.api") == "pipewire-pulse";
}

bool isSandboxed(const Client& client) {
  return !valueOf(client.properties, "pipewire.access.portal.app_id").empty();
}

/// 0 when it cannot be told. What a program says of itself comes first: a proxy speaks for the
/// programs behind it.
std::int32_t processIDOf(const Node& stream, const Client& client) {
  const std::int32_t peer =
      isPulseClient(client) ? 0 : processNumber(client.properties, "pipewire.sec.pid");
  if (isSandboxed(client)) {
    return peer;
  }
  for (const Properties* properties : {&stream.properties, &client.properties}) {
    if (const auto pid = processNumber(*properties, "application.process.id"); pid != 0) {
      return pid;
    }
  }
  return peer;
}

/// Null until the connection has told who it is.
const Client* playerOf(const Session& session, const Node& node) {
  const Client* client = isPlaybackStream(node) ? session.clientOf(node) : nullptr;
  return client != nullptr && client->hasInfo ? client : nullptr;
}

}  // namespace

ProcessCatalogue::ProcessCatalogue(Session& session, std::function<AudioObjectID()> nextID)
    : session_(session), nextID_(std::move(nextID)) {
  update();
}

bool ProcessCatalogue::update() {
  const auto listed = [this] {
    std::vector<AudioObjectID> ids;
    std::ranges::transform(processes_, std::back_inserter(ids), &ClientProcess::id);
    return ids;
  };
  const std::vector<AudioObjectID> before = listed();
  for (const Node* node : session_.nodes()) {
    const Client* client = playerOf(session_, *node);
    if (client == nullptr) {
      continue;
    }
    ClientProcess& process = entryOf(*node, *client);
    process.clients.insert(client->id);
    process.bundleID =
        told(*node, *client,
             {"pipewire.access.portal.app_id", "application.id", "application.process.binary"});
    process.name = told(*node, *client, {"application.name"});
  }
  for (ClientProcess& process : processes_) {
    std::erase_if(process.clients, [this](std::uint32_t id) { return !session_.hasClient(id); });
  }
  const auto gone = std::ranges::stable_partition(
      processes_, [](const ClientProcess& process) { return !process.clients.empty(); });
  std::ranges::copy_if(gone, std::back_inserter(departed_),
                       [](const ClientProcess& process) { return process.startTime.has_value(); });
  processes_.erase(gone.begin(), gone.end());
  return listed() != before;
}

ClientProcess& ProcessCatalogue::entryOf(const Node& stream, const Client& client) {
  // A connection may tell more of itself as time passes; it does not change hands.
  const auto ofClient = std::ranges::find_if(processes_, [&](const ClientProcess& process) {
    return process.clients.contains(client.id);
  });
  const std::int32_t pid = processIDOf(stream, client);
  if (ofClient != processes_.end() && (pid == 0 || ofClient->pid == pid)) {
    return *ofClient;
  }
  const auto ofPid = std::ranges::find_if(
      processes_, [&](const ClientProcess& process) { return pid != 0 && process.pid == pid; });
  return ofPid != processes_.end() ? *ofPid : addEntry(pid);
}

ClientProcess& ProcessCatalogue::addEntry(std::int32_t pid) {
  std::erase_if(departed_, [](const ClientProcess& process) {
    return processStartTime(process.pid) != process.startTime;
  });
  const auto former = std::ranges::find_if(
      departed_, [&](const ClientProcess& process) { return pid != 0 && process.pid == pid; });
  if (former != departed_.end()) {
    processes_.push_back(*former);
    departed_.erase(former);
  } else {
    processes_.push_back({.id = nextID_(), .pid = pid, .startTime = processStartTime(pid)});
  }
  return processes_.back();
}

const ClientProcess* ProcessCatalogue::process(AudioObjectID id) const {
  const auto found = std::ranges::find(processes_, id, &ClientProcess::id);
  return found == processes_.end() ? nullptr : &*found;
}

AudioObjectID ProcessCatalogue::processOf(const Node& stream) const {
  const Client* client = playerOf(session_, stream);
  if (client == nullptr) {
    return kAudioObjectUnknown;
  }
  const std::int32_t pid = processIDOf(stream, *client);
  const auto found = std::ranges::find_if(processes_, [&](const ClientProcess& process) {
    return pid == 0 ? process.clients.contains(client->id) : process.pid == pid;
  });
  return found == processes_.end() ? kAudioObjectUnknown : found->id;
}

bool ProcessCatalogue::isPlaying(const ClientProcess& process) const {
  return std::ranges::any_of(session_.nodes(), [&](const Node* node) {
    return node->isRunning && processOf(*node) == process.id;
  });
}

}  // namespace orvelle::pipewire
