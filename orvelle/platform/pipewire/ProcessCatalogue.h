// The programs that play through the session, with ids that are never used twice.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// A program that has at least one playback stream, or has had one and is still connected.
struct ClientProcess {
  AudioObjectID id = kAudioObjectUnknown;
  std::int32_t pid = 0;  ///< 0 for one that is known by its connection only
  /// When the process began, to tell it from a later one of the same pid; absent when unknown.
  std::optional<std::uint64_t> startTime{};
  std::set<std::uint32_t> clients{};  ///< its connections that have played, by id in the session
  std::string bundleID{};
  std::string name{};  ///< what it calls itself
};

/// In order of appearance. Session lock held in every call.
class ProcessCatalogue {
 public:
  /// `nextID` hands out object ids.
  ProcessCatalogue(Session& session, std::function<AudioObjectID()> nextID);

  /// Takes over what the session lists now. True when processes have come or gone.
  bool update();

  [[nodiscard]] const std::vector<ClientProcess>& processes() const { return processes_; }
  [[nodiscard]] const ClientProcess* process(AudioObjectID id) const;
  /// The process that a playback stream belongs to; 0 for a node that is none.
  [[nodiscard]] AudioObjectID processOf(const Node& stream) const;
  /// The processes of running streams. A stream that is paused is not running.
  [[nodiscard]] std::set<AudioObjectID> playing() const;

 private:
  ClientProcess& entryOf(std::int32_t pid, std::uint32_t client);
  ClientProcess& addEntry(std::int32_t pid);

  Session& session_;
  std::function<AudioObjectID()> nextID_;
  std::vector<ClientProcess> processes_;
  /// Live processes that play no more: one that connects again is the process that it was.
  std::vector<ClientProcess> departed_;
};

}  // namespace orvelle::pipewire
