// How a session's objects reach the mirror: what is bound, and the library's callbacks. For the
// sources of Session only.
#pragma once

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orvelle/platform/pipewire/Pods.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

template <class Bound>
void unbind(Bound& bound) {
  spa_hook_remove(&bound.hook);
  pw_proxy_destroy(bound.proxy);
}

struct Session::BoundNode {
  Session& session;
  Node node;
  pw_proxy* proxy = nullptr;
  spa_hook hook{};
  /// While `rates` asks: which parameter, and what came.
  std::uint32_t askedParam = SPA_ID_INVALID;
  std::vector<RateChoice> answers;

  BoundNode(Session& owner, Node&& mirrored) : session(owner), node(std::move(mirrored)) {}
  BoundNode(const BoundNode&) = delete;
  BoundNode& operator=(const BoundNode&) = delete;
  ~BoundNode() { unbind(*this); }
};

struct Session::BoundCard {
  Session& session;
  Card card;
  pw_proxy* proxy = nullptr;
  spa_hook hook{};

  BoundCard(Session& owner, Card&& mirrored) : session(owner), card(std::move(mirrored)) {}
  BoundCard(const BoundCard&) = delete;
  BoundCard& operator=(const BoundCard&) = delete;
  ~BoundCard() { unbind(*this); }
};

struct Session::BoundClient {
  Session& session;
  Client client;
  pw_proxy* proxy = nullptr;
  spa_hook hook{};

  BoundClient(Session& owner, Client&& mirrored) : session(owner), client(std::move(mirrored)) {}
  BoundClient(const BoundClient&) = delete;
  BoundClient& operator=(const BoundClient&) = delete;
  ~BoundClient() { unbind(*this); }
};

struct Session::BoundMetadata {
  /// A further binding, which hears every entry from the beginning.
  struct Reading {
    pw_proxy* proxy = nullptr;
    spa_hook hook{};

    Reading() = default;
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading() { unbind(*this); }
  };

  Session& session;
  std::string name;
  std::map<std::pair<std::uint32_t, std::string>, MetadataEntry> values;
  pw_proxy* proxy = nullptr;
  spa_hook hook{};
  /// The last one. It stays: nobody tells when it has heard everything.
  std::unique_ptr<Reading> again;

  BoundMetadata(Session& owner, std::string_view metadataName)
      : session(owner), name(metadataName) {}
  BoundMetadata(const BoundMetadata&) = delete;
  BoundMetadata& operator=(const BoundMetadata&) = delete;
  ~BoundMetadata() { unbind(*this); }
};

/// The library's callbacks, all on the loop thread with the lock held.
struct Session::Events {
  explicit Events(Session& owner) : session(owner) {}

  Session& session;
  pw_registry* registry = nullptr;
  spa_hook coreHook{};
  spa_hook registryHook{};

  static void coreInfo(void* data, const pw_core_info* info);
  static void coreDone(void* data, std::uint32_t id, int seq);
  static void coreError(void* data, std::uint32_t id, int seq, int result, const char* message);
  static void registryGlobal(void* data, std::uint32_t id, std::uint32_t permissions,
                             const char* type, std::uint32_t version, const spa_dict* dict);
  static void registryGlobalRemove(void* data, std::uint32_t id);

  void addNode(std::uint32_t id, Properties&& properties);
  void addCard(std::uint32_t id, Properties&& properties);
  void addClient(std::uint32_t id, Properties&& properties);
  void addMetadata(std::uint32_t id, const Properties& properties);
  void addPort(std::uint32_t id, const Properties& properties);
  /// What it hears goes to `metadata`.
  void listen(pw_proxy*& proxy, spa_hook& hook, BoundMetadata& metadata, std::uint32_t id) const;

  static void nodeInfo(void* data, const pw_node_info* info);
  static void nodeParam(void* data, int seq, std::uint32_t id, std::uint32_t index,
                        std::uint32_t next, const spa_pod* param);
  static void cardInfo(void* data, const pw_device_info* info);
  static void cardParam(void* data, int seq, std::uint32_t id, std::uint32_t index,
                        std::uint32_t next, const spa_pod* param);
  static void clientInfo(void* data, const pw_client_info* info);
  static int metadataProperty(void* data, std::uint32_t subject, const char* key, const char* type,
                              const char* value);
};

}  // namespace orvelle::pipewire
