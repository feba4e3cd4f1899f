// A connection of the test itself to the session, with a mirror of everything that is in it.
#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle::instruments {

/// Something that the session publishes: a node, port, link, client, device, metadata.
struct SessionObject {
  std::uint32_t id = 0;
  std::string type;  ///< interface name, like PW_TYPE_INTERFACE_Node
  std::map<std::string, std::string> properties;
  std::int64_t appearedNs = 0;  ///< when the session told of it, CLOCK_MONOTONIC

  /// Empty when absent.
  [[nodiscard]] std::string property(const std::string& key) const;
  /// The property as an object id; PW_ID_ANY when it is none.
  [[nodiscard]] std::uint32_t idProperty(const std::string& key) const;
};

class SessionClient;

/// Told about every object, also about those that were there before. On the loop's thread, with the
/// loop locked.
class SessionObserver {
 public:
  SessionObserver() = default;
  SessionObserver(const SessionObserver&) = delete;
  SessionObserver& operator=(const SessionObserver&) = delete;
  virtual ~SessionObserver() = default;
  virtual void objectAdded(SessionClient& client, const SessionObject& object) = 0;
  virtual void objectRemoved(SessionClient& client, const SessionObject& object) = 0;
};

/// Connects to the session that the environment names. Calls of the library are made with the loop
/// locked (`Lock`); the members below lock by themselves and must not be called from the loop.
class SessionClient {
 public:
  /// Throws std::runtime_error when no session answers. An observer outlives the client.
  explicit SessionClient(const std::string& clientName, SessionObserver* observer = nullptr);
  SessionClient(const SessionClient&) = delete;
  SessionClient& operator=(const SessionClient&) = delete;
  ~SessionClient();

  class Lock {
   public:
    explicit Lock(const SessionClient& client) : loop_(client.loop_.get()) {
      pw_thread_loop_lock(loop_);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { pw_thread_loop_unlock(loop_); }

   private:
    pw_thread_loop* loop_;
  };

  [[nodiscard]] pw_core* core() const { return core_; }
  [[nodiscard]] pw_registry* registry() const { return registry_; }
  [[nodiscard]] pw_loop* loop() const { return pw_thread_loop_get_loop(loop_.get()); }

  /// Returns when the server has done everything that was asked before. Throws
  /// std::runtime_error when the connection is lost.
  void roundTrip();

  /// Objects of an interface, in order of their ids.
  [[nodiscard]] std::vector<SessionObject> objects(std::string_view type) const;
  [[nodiscard]] std::vector<SessionObject> nodes() const;
  [[nodiscard]] std::vector<SessionObject> ports() const;
  [[nodiscard]] std::vector<SessionObject> links() const;
  [[nodiscard]] std::vector<SessionObject> clients() const;
  [[nodiscard]] std::optional<SessionObject> node(std::string_view name) const;

  /// Polls `condition` until it holds; false after `limit`.
  static bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit);

 private:
  struct Events;
  struct LoopDeleter {
    void operator()(pw_thread_loop* loop) const { pw_thread_loop_destroy(loop); }
  };
  struct ContextDeleter {
    void operator()(pw_context* context) const { pw_context_destroy(context); }
  };

  std::unique_ptr<pw_thread_loop, LoopDeleter> loop_;
  std::unique_ptr<pw_context, ContextDeleter> context_;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  SessionObserver* observer_;

  // Guarded by the loop's lock.
  std::map<std::uint32_t, SessionObject> objects_;
  int lastDone_ = -1;
  bool lost_ = false;
};

}  // namespace orvelle::instruments
