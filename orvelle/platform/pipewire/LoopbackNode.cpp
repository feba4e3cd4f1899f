#include "orvelle/platform/pipewire/LoopbackNode.h"

#include <pipewire/pipewire.h>

#include <string>

namespace orvelle::pipewire {

namespace {

constexpr std::size_t kChannels = 2;
constexpr double kCreationSeconds = 1.0;
constexpr double kRemovalSeconds = 0.2;

}  // namespace

const Node* LoopbackNode::node() const {
  const Node* node = session_.nodeNamed(kLoopbackName);
  const bool isComplete = node != nullptr && node->hasInfo && node->level &&
                          session_.ports(node->id, true).size() >= kChannels &&
                          session_.ports(node->id, false).size() >= kChannels;
  return isComplete ? node : nullptr;
}

bool LoopbackNode::isForeign() const {
  return proxy_ == nullptr && session_.nodeNamed(kLoopbackName) != nullptr;
}

bool LoopbackNode::ensure() {
  if (proxy_ == nullptr && !isForeign()) {
    pw_properties* properties =
        pw_properties_new("factory.name", "support.null-audio-sink",                           //
                          PW_KEY_NODE_NAME, std::string(kLoopbackName).c_str(),                //
                          PW_KEY_NODE_DESCRIPTION, std::string(kLoopbackDescription).c_str(),  //
                          PW_KEY_MEDIA_CLASS, "Audio/Sink", "audio.position", "FL,FR",         //
                          "audio.rate", "48000", PW_KEY_NODE_VIRTUAL, "true",                  //
                          "monitor.channel-volumes", "true",  // its volume is the system's control
                          "priority.session", "1",            // never a default by itself
                          "priority.driver", "1",             // drives only when nothing real does
                          "session.suspend-timeout-seconds", "0", "state.restore-props",
                          "false",  // its volume is handed over at each start
                          nullptr);
    proxy_ = static_cast<pw_proxy*>(pw_core_create_object(
        session_.core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &properties->dict, 0));
    pw_properties_free(properties);
  }
  if (!session_.waitUntil([this] { return node() != nullptr; }, kCreationSeconds)) {
    return false;
  }
  reliedOn_ = node()->id;
  return true;
}

bool LoopbackNode::takeLoss() {
  if (!reliedOn_ || session_.node(*reliedOn_) != nullptr) {
    return false;
  }
  reliedOn_.reset();
  if (proxy_ != nullptr) {
    pw_proxy_destroy(proxy_);
    proxy_ = nullptr;
  }
  return true;
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
