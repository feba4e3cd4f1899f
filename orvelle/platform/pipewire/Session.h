// One connection to the PipeWire session and a mirror of those of its objects that matter here.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "orvelle/platform/pipewire/SessionObjects.h"

struct pw_context;
struct pw_core;
struct pw_thread_loop;

namespace orvelle::pipewire {

/// What has changed in the mirror.
enum class Change : std::uint8_t { objects, level, metadata };

/// The connection's loop thread keeps the mirror up to date; everybody else holds a `Lock` around
/// every call and every use of what it returned.
class Session {
 public:
  /// Null when no session answers; `problem` then says what was tried and what came of it.
  static std::unique_ptr<Session> open(std::string& problem);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  /// Not recursive: a thread takes it once.
  class Lock {
   public:
    explicit Lock(const Session& session);
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock();

   private:
    pw_thread_loop* loop_;
  };

  /// @name Mirror
  /// @{
  /// In order of appearance: sinks, sources, playback streams and this program's own streams.
  [[nodiscard]] std::vector<const Node*> nodes() const;
  [[nodiscard]] const Node* node(std::uint32_t id) const;
  /// The first node of that name.
  [[nodiscard]] const Node* nodeNamed(std::string_view name) const;
  /// The connection that made the node.
  [[nodiscard]] const Client* clientOf(const Node& node) const;
  /// Its id, also for the nodes that are not mirrored. Absent when the server itself made the node.
  [[nodiscard]] std::optional<std::uint32_t> clientIDOf(std::uint32_t node) const;
  /// Whether there is a node of that name, and the process that made it lives: the nodes of one
  /// that has just died are listed on for a moment.
  [[nodiscard]] bool isOwned(std::string_view nodeName) const;
  [[nodiscard]] bool hasClient(std::uint32_t id) const { return clients_.contains(id); }
  [[nodiscard]] const Card* cardOf(const Node& node) const;
  /// The hardware path of a node, where its card controls the volume.
  [[nodiscard]] const Route* routeOf(const Node& node) const;
  /// In the order of their numbers.
  [[nodiscard]] std::vector<const Port*> ports(std::uint32_t node, bool input) const;
  /// Whether the two channels of a sink can be linked already, at both ends.
  [[nodiscard]] bool hasStereoPorts(const Node& node) const;
  [[nodiscard]] std::vector<Link> linksInto(std::uint32_t node) const;
  [[nodiscard]] std::vector<Link> linksFrom(std::uint32_t node) const;
  [[nodiscard]] bool hasLink(std::uint32_t id) const { return links_.contains(id); }
  [[nodiscard]] bool hasMetadata(std::string_view metadata) const;
  /// An entry of the metadata object `metadata` ("default", "settings", ...), and its value alone.
  [[nodiscard]] std::optional<MetadataEntry> metadataEntry(std::string_view metadata,
                                                           std::uint32_t subject,
                                                           std::string_view key) const;
  [[nodiscard]] std::optional<std::string> metadataValue(std::string_view metadata,
                                                         std::uint32_t subject,
                                                         std::string_view key) const;
  /// @}

  /// @name Requests. They are on their way when the call returns; the mirror tells when they took.
  /// @{
  /// False when the session has no such metadata. A null value removes the entry.
  bool setMetadata(std::string_view metadata, std::uint32_t subject, const char* key,
                   const char* type, const char* value);
  /// Has every entry told once more. What is said of an object is told only to connections that
  /// have made a round trip since it appeared: for a new object the mirror may lack what was said
  /// of it at once. Until it has been told, PipeWire up to 0.3 tells nobody else what changes.
  void readMetadataAgain(std::string_view metadata);
  /// Volume and mute of the node itself.
  void setNodeLevel(std::uint32_t node, const ChannelLevel& level);
  /// Volume and mute of the node's hardware path. Never kept by the session manager: what this
  /// program sets is temporary.
  void setRouteLevel(const Node& node, const Route& route, const ChannelLevel& level);
  /// @}

  /// Rates in Hz that the node's parameter `Format` (in use) or `EnumFormat` (possible) names.
  struct Rates {
    std::int32_t current = 0;  ///< 0 when nothing is running
    std::int32_t preferred = 0;
    std::int32_t lowest = 0;
    std::int32_t highest = 0;
    std::vector<std::int32_t> choices;  ///< empty: anything from lowest to highest
  };
  /// Asks the session. Waits for the answer.
  Rates rates(std::uint32_t node);

  /// Lets time pass until `condition` holds, for `seconds` at most; returns whether it holds. The
  /// condition is asked again after every event. Never on the loop thread.
  bool waitUntil(const std::function<bool()>& condition, double seconds);
  /// Runs `job` once on the loop thread, with the lock held; not at all when the session ends
  /// first.
  void after(double seconds, std::function<void()> job);
  /// No job runs any more that `after` was given so far.
  void cancelJobs();
  /// Everything asked so far has been done by the session, and its answers have arrived.
  void roundTrip();

  /// Called on the loop thread with the lock held, after each change of the mirror.
  std::function<void(Change)> onChange;
  /// The server is gone, and the mirror is empty: whatever was made on the connection has to be
  /// dropped before this returns. The session goes on by itself when a server answers again. Called
  /// on the loop thread with the lock held, and never while another call waits.
  std::function<void()> onLoss;

  [[nodiscard]] bool isConnected() const { return isConnected_; }
  /// Null while no server answers.
  [[nodiscard]] pw_core* core() const { return core_; }
  /// Of the server, such as "1.4.2". A client's library may be of another one.
  [[nodiscard]] const std::string& serverVersion() const { return serverVersion_; }
  /// Wakes `waitUntil`. Lock held.
  void wake();
  /// Calls `onChange` and wakes `waitUntil`. Loop thread.
  void announce(Change change);

 private:
  struct Events;
  struct BoundNode;
  struct BoundCard;
  struct BoundClient;
  struct BoundMetadata;
  struct Timer;

  Session();
  bool open();
  bool connect();
  void disconnect();
  void clearMirror();
  void takeLoss();
  void reconnect();
  void addPort(Port&& port);
  bool removePort(std::uint32_t id);

  pw_thread_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  std::unique_ptr<Events> events_;
  bool isConnected_ = false;
  int waiting_ = 0;  ///< calls that are waiting, with the lock let go
  std::string serverVersion_;
  int lastDone_ = 0;

  std::map<std::uint32_t, std::unique_ptr<BoundNode>> nodes_;
  std::vector<std::uint32_t> nodeOrder_;
  /// Of the nodes that are not mirrored: who made them.
  std::map<std::uint32_t, std::uint32_t> clientsOfOthers_;
  std::map<std::uint32_t, std::unique_ptr<BoundCard>> cards_;
  std::map<std::uint32_t, std::unique_ptr<BoundClient>> clients_;
  std::map<std::uint32_t, std::unique_ptr<BoundMetadata>> metadata_;
  std::map<std::uint32_t, Port> ports_;
  /// By node: the ports of every node are asked for at each change.
  std::map<std::uint32_t, std::vector<const Port*>> portsOfNodes_;
  std::map<std::uint32_t, Link> links_;
  std::vector<std::unique_ptr<Timer>> timers_;
};

}  // namespace orvelle::pipewire
