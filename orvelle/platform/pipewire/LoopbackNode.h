// The loopback device as a node of the session.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "orvelle/platform/pipewire/Session.h"

struct pw_proxy;

namespace orvelle::pipewire {

inline constexpr std::string_view kLoopbackName = "OrvelleAudioDevice_UID";
inline constexpr std::string_view kLoopbackDescription = "Orvelle Audio";

/// There is nothing to install: the node is made when it is needed and belongs to this connection,
/// so that it cannot outlive the process. Where another instance has made one, that one is used.
///
/// Session lock held in every call, the destructor included.
class LoopbackNode {
 public:
  explicit LoopbackNode(Session& session) : session_(session) {}
  LoopbackNode(const LoopbackNode&) = delete;
  LoopbackNode& operator=(const LoopbackNode&) = delete;
  ~LoopbackNode() { destroy(); }

  /// The node with all its ports; null while there is none.
  [[nodiscard]] const Node* node() const;
  /// Whether another instance owns the node.
  [[nodiscard]] bool isForeign() const;
  /// Makes the node unless there is one, and waits for it. False when it did not come.
  bool ensure();
  /// Ends our own node; does nothing to another instance's.
  void destroy();
  /// The connection is gone, and our node with it.
  void drop();
  /// Whether the node that `ensure` gave has gone since, and not by `destroy`. True once. Its
  /// volume is gone with it. To be asked after every change of the session's objects.
  bool takeLoss();

 private:
  void create();

  Session& session_;
  pw_proxy* proxy_ = nullptr;
  std::optional<std::uint32_t> reliedOn_;  ///< the node's id in the session
};

}  // namespace orvelle::pipewire
