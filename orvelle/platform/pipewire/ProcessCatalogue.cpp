#include "orvelle/platform/pipewire/ProcessCatalogue.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "orvelle/platform/Process.h"
#include "orvelle/platform/pipewire/ProcessIdentity.h"

namespace orvelle::pipewire {

namespace {

bool isPlaybackStream(const Node& node) {
  return node.mediaClass() == "Stream/Output/Audio";
}

/// Null until the connection has told who it is.
const Client* playerOf(const Session& session, const Node& node) {
  const Client* client = isPlaybackStream(node) ? session.clientOf(node) : nullptr;
  return client != nullptr && client->hasInfo ? client : nullptr;
}

/// A process without a number is its connection.
bool isOf(const ClientProcess& process, std::int32_t pid, std::uint32_t client) {
  return process.pid == pid && (pid != 0 || process.clients.contains(client));
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
    ProcessIdentity identity = identify(node->properties, client->properties);
    ClientProcess& process = entryOf(identity.pid, client->id);
    process.clients.insert(client->id);
    process.bundleID = std::move(identity.bundleID);
    process.name = std::move(identity.name);
  }
  for (ClientProcess& process : processes_) {
    std::erase_if(process.clients, [this](std::uint32_t id) { return !session_.hasClient(id); });
  }
  const auto gone =
      std::stable_partition(processes_.begin(), processes_.end(),
                            [](const ClientProcess& process) { return !process.clients.empty(); });
  std::copy_if(gone, processes_.end(), std::back_inserter(departed_),
               [](const ClientProcess& process) { return process.startTime.has_value(); });
  processes_.erase(gone, processes_.end());
  return listed() != before;
}

ClientProcess& ProcessCatalogue::entryOf(std::int32_t pid, std::uint32_t client) {
  const auto found = std::ranges::find_if(
      processes_, [&](const ClientProcess& process) { return isOf(process, pid, client); });
  return found != processes_.end() ? *found : addEntry(pid);
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
  const std::int32_t pid = processID(stream.properties, client->properties);
  const auto found = std::ranges::find_if(
      processes_, [&](const ClientProcess& process) { return isOf(process, pid, client->id); });
  return found == processes_.end() ? kAudioObjectUnknown : found->id;
}

std::set<AudioObjectID> ProcessCatalogue::playing() const {
  std::set<AudioObjectID> ids;
  for (const Node* node : session_.nodes()) {
    if (node->isRunning) {
      ids.insert(processOf(*node));
    }
  }
  return ids;
}

}  // namespace orvelle::pipewire
