#include "orvelle/platform/pipewire/LoopbackNode.h"

#include <pipewire/pipewire.h>

#include <array>
#include <utility>

namespace orvelle::pipewire {

namespace {

constexpr double kCreationSeconds = 1.0;
constexpr double kRemovalSeconds = 0.2;

}  // namespace

const Node* LoopbackNode::node() const {
  const Node* node = session_.nodeNamed(kLoopbackName);
  const bool isComplete =
      node != nullptr && node->hasInfo && node->level && session_.hasStereoPorts(*node);
  return isComplete ? node : nullptr;
}

bool LoopbackNode::isForeign() const {
  return proxy_ == nullptr && session_.nodeNamed(kLoopbackName) != nullptr;
}

bool LoopbackNode::ensure() {
  // Another instance's node may go away while it is being looked at: then ours is made.
  for (int attempt = 0; attempt < 2; ++attempt) {
    const auto isMissing = [this] { return proxy_ == nullptr && !isForeign(); };
    if (isMissing()) {
      create();
    }
    session_.waitUntil([&] { return node() != nullptr || isMissing(); }, kCreationSeconds);
    if (node() != nullptr) {
      reliedOn_ = node()->id;
      return true;
    }
  }
  return false;
}

void LoopbackNode::create() {
  static constexpr std::array kProperties = {
      spa_dict_item{"factory.name", "support.null-audio-sink"},
      spa_dict_item{PW_KEY_NODE_NAME, kLoopbackName.data()},
      spa_dict_item{PW_KEY_NODE_DESCRIPTION, kLoopbackDescription.data()},
      spa_dict_item{PW_KEY_MEDIA_CLASS, "Audio/Sink"},
      spa_dict_item{"audio.position", "FL,FR"},
      spa_dict_item{"audio.rate", "48000"},
      spa_dict_item{PW_KEY_NODE_VIRTUAL, "true"},
      // Its volume is the system's volume control, and is handed over at each start.
      spa_dict_item{"monitor.channel-volumes", "true"},
      spa_dict_item{"state.restore-props", "false"},
      // Never a default by itself, and the graph's clock only where nothing real is.
      spa_dict_item{"priority.session", "1"},
      spa_dict_item{"priority.driver", "1"},
      spa_dict_item{"session.suspend-timeout-seconds", "0"},
  };
  const spa_dict properties{0, kProperties.size(), kProperties.data()};
  if (!session_.isConnected()) {
    return;
  }
  proxy_ = static_cast<pw_proxy*>(pw_core_create_object(
      session_.core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &properties, 0));
}

bool LoopbackNode::takeLoss() {
  if (!reliedOn_ || session_.node(*reliedOn_) != nullptr) {
    return false;
  }
  reliedOn_.reset();
  drop();
  return true;
}

void LoopbackNode::drop() {
  if (proxy_ != nullptr) {
    pw_proxy_destroy(std::exchange(proxy_, nullptr));
  }
}

void LoopbackNode::destroy() {
  reliedOn_.reset();
  if (proxy_ == nullptr) {
    return;
  }
  pw_proxy_destroy(proxy_);
  proxy_ = nullptr;
  // While it is still listed it would be taken for another instance's.
  session_.waitUntil([this] { return session_.nodeNamed(kLoopbackName) == nullptr; },
                     kRemovalSeconds);
}

}  // namespace orvelle::pipewire
