// The hand of the user on the desktop: what a settings panel and a mixer read and change while the
// program under test runs.
#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "instruments/SessionClient.h"

namespace orvelle::instruments {

/// Volume and mute of a node as the session holds them.
struct NodeVolume {
  std::vector<float> linear;  ///< one factor a channel
  bool isMuted = false;

  /// The loudest channel on the scale that mixers show.
  [[nodiscard]] float cubic() const;
};

/// One notification of the effective default output.
struct DefaultChange {
  std::int64_t timeNs = 0;  ///< CLOCK_MONOTONIC
  std::string name;         ///< node.name; empty: none
};

class DesktopPanel : private SessionObserver {
 public:
  DesktopPanel();
  ~DesktopPanel() override;

  /// The connection, for its lists of nodes, ports and links.
  [[nodiscard]] const SessionClient& session() const { return client_; }

  /// node.name of the output in effect, and of the one that was chosen; empty when there is none.
  [[nodiscard]] std::string defaultSink() const;
  [[nodiscard]] std::string configuredSink() const;
  /// Every notification since construction, the first reading included.
  [[nodiscard]] std::vector<DefaultChange> defaultChanges() const;
  [[nodiscard]] bool waitForDefault(std::string_view name, std::chrono::milliseconds limit) const;

  /// Chooses an output; returns when the server has taken it: its CLOCK_MONOTONIC time.
  std::int64_t configureSink(const std::string& name);

  /// Sends a stream to an output, as mixers do: to a node.name or an object.serial. Empty: lets it
  /// follow the default again.
  void sendStream(std::string_view stream, const std::string& target);
  /// The order above that is in force, whoever gave it; empty when there is none.
  [[nodiscard]] std::string streamTarget(std::string_view stream);
  /// node.name of every output that a stream is linked to.
  [[nodiscard]] std::set<std::string> outputsOf(std::string_view stream) const;

  /// Throws std::runtime_error for a name that is not there.
  [[nodiscard]] NodeVolume volume(std::string_view node);
  /// Sets all channels; on the scale that mixers show. An output that has never run is made to run
  /// for a moment: newer servers take its volume and mute only then.
  void setVolume(std::string_view node, float cubic);
  void setMute(std::string_view node, bool muted);

  /// Fixes the frames of a cycle for the whole session; 0 ends that.
  void forceQuantum(int frames);

 private:
  struct Events;

  void objectAdded(SessionClient& client, const SessionObject& object) override;
  void objectRemoved(SessionClient& client, const SessionObject& object) override;
  void setMetadata(pw_metadata* metadata, std::uint32_t subject, const std::string& key,
                   const char* type, const std::string& value);
  /// Repeats `set` until it says that the output has taken it, with the output running if need be.
  void letTake(std::string_view node, const std::function<bool()>& set);
  [[nodiscard]] std::uint32_t idOf(std::string_view node) const;

  // Guarded by the loop's lock.
  pw_metadata* default_ = nullptr;
  pw_metadata* settings_ = nullptr;
  std::uint32_t defaultID_ = PW_ID_ANY;
  spa_hook defaultListener_{};
  std::string configuredSink_;
  std::vector<DefaultChange> defaultChanges_;

  SessionClient client_;
};

}  // namespace orvelle::instruments
