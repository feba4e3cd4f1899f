#include "instruments/HotPlug.h"

#include <stdexcept>

#include "instruments/Subprocess.h"

namespace orvelle::instruments {
namespace {
constexpr std::chrono::milliseconds plugLimit{2000};
}

HotPlug::HotPlug() : client_("hot plug") {}

HotPlug::~HotPlug() {
  const SessionClient::Lock lock(client_);
  for (const auto& [name, proxy] : plugged_) {
    pw_proxy_destroy(proxy);
  }
}

std::int64_t HotPlug::plug(const StandIn& standIn) {
  {
    const SessionClient::Lock lock(client_);
    pw_properties* properties = pw_properties_new(nullptr, nullptr);
    for (const auto& [key, value] : standIn.properties()) {
      pw_properties_set(properties, key.c_str(), value.c_str());
    }
    plugged_[standIn.name] = static_cast<pw_proxy*>(pw_core_create_object(
        client_.core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &properties->dict, 0));
    pw_properties_free(properties);
  }
  // The session manager gives an output its ports: playback and monitor.
  const std::size_t expected = 2 * standIn.positions.size();
  if (!SessionClient::waitFor([&] { return portCount(standIn.name) >= expected; }, plugLimit)) {
    throw std::runtime_error("the output " + standIn.name + " got no ports");
  }
  return monotonicNanoseconds();
}

std::int64_t HotPlug::unplug(const std::string& name) {
  const auto node = client_.node(name);
  if (!node) {
    throw std::runtime_error("no output " + name + " to unplug");
  }
  {
    const SessionClient::Lock lock(client_);
    if (const auto own = plugged_.find(name); own != plugged_.end()) {
      pw_proxy_destroy(own->second);
      plugged_.erase(own);
    } else {
      pw_registry_destroy(client_.registry(), node->id);
    }
  }
  if (!SessionClient::waitFor([&] { return !client_.node(name); }, plugLimit)) {
    throw std::runtime_error("the output " + name + " stayed");
  }
  return monotonicNanoseconds();
}

std::size_t HotPlug::portCount(const std::string& name) const {
  const auto node = client_.node(name);
  std::size_t count = 0;
  for (const SessionObject& port : client_.ports()) {
    if (node && port.idProperty(PW_KEY_NODE_ID) == node->id) {
      ++count;
    }
  }
  return count;
}

}  // namespace orvelle::instruments
