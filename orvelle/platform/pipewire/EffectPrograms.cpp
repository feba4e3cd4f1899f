#include "orvelle/platform/pipewire/EffectPrograms.h"

#include <cstdint>
#include <iterator>
#include <set>

#include "orvelle/platform/pipewire/DisplayText.h"
#include "orvelle/platform/pipewire/LoopbackNode.h"
#include "orvelle/platform/pipewire/Transport.h"

namespace orvelle::pipewire {

namespace {

bool isOurs(const Node& node) {
  return node.name().starts_with(kOwnNodesPrefix) || node.name() == kLoopbackName;
}

bool isOutput(const Node& node) {
  return node.name() == kLoopbackName ||
         (hasDeviceBehind(node.properties) &&
          (node.mediaClass() == "Audio/Sink" || node.mediaClass() == "Audio/Duplex"));
}

bool isSinkOfProgram(const Session& session, const Node& node) {
  return node.hasInfo && node.mediaClass() == "Audio/Sink" && !isOurs(node) &&
         !hasDeviceBehind(node.properties) && session.cardOf(node) == nullptr;
}

/// What enters it leaves by its links alone. Everything else belongs to a program, which may let
/// it out again through streams.
bool isNullSink(const Node& node) {
  return valueOf(node.properties, "factory.name") == "support.null-audio-sink";
}

/// Whether `stream` plays what its program got through the node `from`, which is null where it is
/// not mirrored: a filter, or a recording stream.
bool isOutletOf(const Node* from, const Node& stream) {
  const std::string_view group = valueOf(stream.properties, "node.link-group");
  if (from == nullptr) {
    // Most programs that record and play, such as those for calls, do not play what they record.
    // The ones that do tell so by a group, to be spared a link from their output to their input.
    return !group.empty();
  }
  return !isNullSink(*from) && valueOf(from->properties, "node.link-group") == group;
}

/// Where the sound of a node goes next.
std::set<std::uint32_t> nextNodes(const Session& session, std::uint32_t id) {
  std::set<std::uint32_t> next;
  for (const Link& link : session.linksFrom(id)) {
    next.insert(link.inputNode);
  }
  const Node* const node = session.node(id);
  const auto client = session.clientIDOf(id);
  const bool isSource = node != nullptr && node->mediaClass() == "Stream/Output/Audio";
  if (!client || isSource) {
    return next;
  }
  for (const Node* stream : session.nodes()) {
    if (stream->mediaClass() == "Stream/Output/Audio" && session.clientIDOf(stream->id) == client &&
        isOutletOf(node, *stream)) {
      next.insert(stream->id);
    }
  }
  return next;
}

bool reachesOutput(const Session& session, const Node& sink) {
  std::set<std::uint32_t> known = {sink.id};
  std::vector<std::uint32_t> open = {sink.id};
  while (!open.empty()) {
    const std::uint32_t id = open.back();
    open.pop_back();
    const Node* const node = session.node(id);
    if (node != nullptr && isOutput(*node)) {
      return true;
    }
    // What a boost reads from a sink, and plays, makes no effect of that sink.
    if (node != nullptr && isOurs(*node)) {
      continue;
    }
    for (const std::uint32_t next : nextNodes(session, id)) {
      if (known.insert(next).second) {
        open.push_back(next);
      }
    }
  }
  return false;
}

std::string nameOf(const Session& session, const Node& sink) {
  const Client* const client = session.clientOf(sink);
  const std::string_view program =
      client == nullptr ? std::string_view{} : valueOf(client->properties, "application.name");
  // Modules of the servers call their connection by the server's name.
  if (!program.empty() && program != "pipewire" && program != "pipewire-pulse") {
    return displayText(program);
  }
  const std::string_view description = valueOf(sink.properties, "node.description");
  return displayText(description.empty() ? sink.name() : description);
}

}  // namespace

std::vector<std::string> effectPrograms(const Session& session) {
  std::set<std::string> names;
  for (const Node* node : session.nodes()) {
    if (isSinkOfProgram(session, *node) && reachesOutput(session, *node)) {
      names.insert(nameOf(session, *node));
    }
  }
  return {std::make_move_iterator(names.begin()), std::make_move_iterator(names.end())};
}

}  // namespace orvelle::pipewire
