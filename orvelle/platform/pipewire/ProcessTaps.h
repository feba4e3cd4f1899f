// Process taps: what some programs play, taken off its normal path.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/pipewire/ProcessCatalogue.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// A tap is a sink that no mixer shows and no default can be: its monitor is what the tap delivers.
/// While the tap is read, every playback stream of its processes is sent there, also those that
/// come later, and what the user wants of a stream meanwhile is kept in mind. When it is read no
/// more, each stream gets back the target that it had, or that the user has wished for it since.
///
/// Streams that their programs have pinned for good ("node.dont-move") stay where they are. A
/// stream is in one tap at a time: a second tap of its process has it when the first one lets go.
///
/// Session lock held in every call, the destructor included.
class ProcessTaps {
 public:
  ProcessTaps(Session& session, const ProcessCatalogue& processes,
              std::function<AudioObjectID()> nextID);
  ProcessTaps(const ProcessTaps&) = delete;
  ProcessTaps& operator=(const ProcessTaps&) = delete;
  ~ProcessTaps();

  /// Waits for the node.
  OSStatus create(const TapDescription& description, AudioObjectID& tap);
  OSStatus destroy(AudioObjectID tap);

  [[nodiscard]] bool contains(AudioObjectID tap) const { return taps_.contains(tap); }
  /// The sink behind the tap; empty for an unknown UUID and for an unknown id.
  [[nodiscard]] std::string nodeName(std::string_view uuid) const;
  [[nodiscard]] std::string nodeName(AudioObjectID tap) const;

  /// From now on exactly the taps of these UUIDs are read. Does not wait.
  void setRead(const std::set<std::string>& uuids);
  /// Sends streams to and from the taps as it should be. To be called after every change of the
  /// session's objects and metadata.
  void update();
  /// The connection is gone: `update` makes the taps anew on the next one.
  void drop();
  /// Gives the streams back that a process took with it into its end: those that are sent to a tap
  /// that is not there.
  void releaseAbandoned();
  /// Lets streams arrive that are on their way to the tap or from it; not for long.
  void waitForStreams(std::string_view uuid);

 private:
  struct Tap;

  [[nodiscard]] const Tap* find(std::string_view uuid) const;
  void take(Tap& tap, const Node& stream);
  void giveBack(Tap& tap);
  void keepSink(Tap& tap);
  bool send(std::uint32_t stream, const std::optional<MetadataEntry>& target);
  bool remember(std::uint32_t stream);
  void set(std::uint32_t stream, const char* key, const std::optional<MetadataEntry>& entry);
  [[nodiscard]] bool areStreamsIn(const Tap& tap, bool wanted) const;

  Session& session_;
  const ProcessCatalogue& processes_;
  std::function<AudioObjectID()> nextID_;
  std::map<AudioObjectID, std::unique_ptr<Tap>> taps_;
};

}  // namespace orvelle::pipewire
