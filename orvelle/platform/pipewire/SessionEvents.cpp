#include "orvelle/platform/pipewire/SessionEvents.h"

#include <spa/param/param.h>

#include <cerrno>
#include <memory>

namespace orvelle::pipewire {

namespace {

/// At once, but after the event that tells of the loss.
constexpr double kLossSeconds = 1e-6;

Properties propertiesOf(const spa_dict* dict) {
  Properties properties;
  const spa_dict_item* item = nullptr;
  spa_dict_for_each(item, dict) {
    if (item->value != nullptr) {
      properties[item->key] = item->value;
    }
  }
  return properties;
}

bool isMirrored(const Properties& node) {
  const std::string_view mediaClass = valueOf(node, "media.class");
  return valueOf(node, "node.name").starts_with(kOwnNodesPrefix) ||
         mediaClass.starts_with("Audio/Sink") || mediaClass.starts_with("Audio/Source") ||
         mediaClass == "Audio/Duplex" || mediaClass == "Stream/Output/Audio";
}

}  // namespace

// Connection

void Session::Events::coreInfo(void* data, const pw_core_info* info) {
  if (info->version != nullptr) {
    static_cast<Events*>(data)->session.serverVersion_ = info->version;
  }
}

void Session::Events::coreDone(void* data, std::uint32_t /*id*/, int seq) {
  auto& session = static_cast<Events*>(data)->session;
  session.lastDone_ = seq;
  session.wake();
}

void Session::Events::coreError(void* data, std::uint32_t id, int /*seq*/, int result,
                                const char* /*message*/) {
  // Everything else reports on single objects, which come and go: no harm done.
  if (id == PW_ID_CORE && result == -EPIPE) {
    auto& session = static_cast<Events*>(data)->session;
    session.isConnected_ = false;
    session.wake();
    session.after(kLossSeconds, [&session] { session.takeLoss(); });
  }
}

// Registry

void Session::Events::registryGlobal(void* data, std::uint32_t id, std::uint32_t /*permissions*/,
                                     const char* type, std::uint32_t /*version*/,
                                     const spa_dict* dict) {
  auto& events = *static_cast<Events*>(data);
  const std::string_view kind(type);
  if (dict == nullptr) {
    return;
  }
  Properties properties = propertiesOf(dict);
  if (kind == PW_TYPE_INTERFACE_Node) {
    events.addNode(id, std::move(properties));
  } else if (kind == PW_TYPE_INTERFACE_Device) {
    events.addCard(id, std::move(properties));
  } else if (kind == PW_TYPE_INTERFACE_Client) {
    events.addClient(id, std::move(properties));
  } else if (kind == PW_TYPE_INTERFACE_Metadata) {
    events.addMetadata(id, properties);
  } else if (kind == PW_TYPE_INTERFACE_Port) {
    events.addPort(id, properties);
  } else if (kind == PW_TYPE_INTERFACE_Link) {
    events.session.links_[id] = {numberOf(properties, "link.output.node"),
                                 numberOf(properties, "link.input.node")};
    events.session.announce(Change::objects);
  }
}

void Session::Events::registryGlobalRemove(void* data, std::uint32_t id) {
  Session& session = static_cast<Events*>(data)->session;
  for (auto& [metadataID, metadata] : session.metadata_) {
    // Nobody tells that what was said of an object has gone with it, and ids are used anew.
    std::erase_if(metadata->values, [id](const auto& entry) { return entry.first.first == id; });
  }
  std::erase(session.nodeOrder_, id);
  session.clientsOfOthers_.erase(id);
  const std::size_t removed = session.nodes_.erase(id) + session.cards_.erase(id) +
                              session.clients_.erase(id) + session.links_.erase(id);
  if (session.removePort(id) || removed != 0) {
    session.announce(Change::objects);
  }
  if (session.metadata_.erase(id) != 0) {
    session.announce(Change::metadata);
  }
}

void Session::Events::addNode(std::uint32_t id, Properties&& properties) {
  static const pw_node_events kEvents = [] {
    pw_node_events events{};
    events.version = PW_VERSION_NODE_EVENTS;
    events.info = nodeInfo;
    events.param = nodeParam;
    return events;
  }();
  if (!isMirrored(properties)) {
    session.clientsOfOthers_[id] = numberOf(properties, "client.id");
    return;
  }
  Node mirrored;
  mirrored.id = id;
  mirrored.properties = std::move(properties);
  auto bound = std::make_unique<BoundNode>(session, std::move(mirrored));
  bound->proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
  auto* node = reinterpret_cast<pw_node*>(bound->proxy);
  pw_node_add_listener(node, &bound->hook, &kEvents, bound.get());
  std::uint32_t params = SPA_PARAM_Props;
  pw_node_subscribe_params(node, &params, 1);
  session.nodes_[id] = std::move(bound);
  session.nodeOrder_.push_back(id);
  session.announce(Change::objects);
}

void Session::Events::addCard(std::uint32_t id, Properties&& properties) {
  static const pw_device_events kEvents = [] {
    pw_device_events events{};
    events.version = PW_VERSION_DEVICE_EVENTS;
    events.info = cardInfo;
    events.param = cardParam;
    return events;
  }();
  auto bound = std::make_unique<BoundCard>(session, Card{id, std::move(properties), {}});
  bound->proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, 0));
  auto* device = reinterpret_cast<pw_device*>(bound->proxy);
  pw_device_add_listener(device, &bound->hook, &kEvents, bound.get());
  session.cards_[id] = std::move(bound);
}

void Session::Events::addClient(std::uint32_t id, Properties&& properties) {
  static const pw_client_events kEvents = [] {
    pw_client_events events{};
    events.version = PW_VERSION_CLIENT_EVENTS;
    events.info = clientInfo;
    return events;
  }();
  auto bound = std::make_unique<BoundClient>(session, Client{id, std::move(properties), false});
  bound->proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, 0));
  auto* client = reinterpret_cast<pw_client*>(bound->proxy);
  pw_client_add_listener(client, &bound->hook, &kEvents, bound.get());
  session.clients_[id] = std::move(bound);
}

void Session::Events::listen(pw_proxy*& proxy, spa_hook& hook, BoundMetadata& metadata,
                             std::uint32_t id) const {
  static const pw_metadata_events kEvents = [] {
    pw_metadata_events events{};
    events.version = PW_VERSION_METADATA_EVENTS;
    events.property = metadataProperty;
    return events;
  }();
  proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(proxy), &hook, &kEvents, &metadata);
}

void Session::Events::addMetadata(std::uint32_t id, const Properties& properties) {
  auto bound = std::make_unique<BoundMetadata>(session, valueOf(properties, "metadata.name"));
  listen(bound->proxy, bound->hook, *bound, id);
  session.metadata_[id] = std::move(bound);
}

void Session::readMetadataAgain(std::string_view metadata) {
  for (const auto& [id, bound] : metadata_) {
    if (bound->name == metadata && isConnected_) {
      bound->again = std::make_unique<BoundMetadata::Reading>();
      events_->listen(bound->again->proxy, bound->again->hook, *bound, id);
    }
  }
}

void Session::Events::addPort(std::uint32_t id, const Properties& properties) {
  if (valueOf(properties, "format.dsp") != "32 bit float mono audio") {
    return;
  }
  Port port;
  port.id = id;
  port.node = numberOf(properties, "node.id");
  port.index = numberOf(properties, "port.id");
  port.isInput = valueOf(properties, "port.direction") == "in";
  port.channel = valueOf(properties, "audio.channel");
  session.addPort(std::move(port));
  session.announce(Change::objects);
}

// Bound objects

void Session::Events::nodeInfo(void* data, const pw_node_info* info) {
  auto& bound = *static_cast<BoundNode*>(data);
  if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0U && info->props != nullptr) {
    bound.node.properties = propertiesOf(info->props);
  }
  bound.node.isRunning = info->state == PW_NODE_STATE_RUNNING;
  // A node that has just run is idle for some seconds.
  bound.node.hasRun |= bound.node.isRunning || info->state == PW_NODE_STATE_IDLE;
  bound.node.hasInfo = true;
  bound.session.announce(Change::objects);
}

void Session::Events::nodeParam(void* data, int /*seq*/, std::uint32_t id, std::uint32_t /*index*/,
                                std::uint32_t /*next*/, const spa_pod* param) {
  auto& bound = *static_cast<BoundNode*>(data);
  if (id == bound.askedParam && param != nullptr) {
    bound.answers.push_back(rateFromFormat(param));
  }
  if (id != SPA_PARAM_Props || param == nullptr) {
    return;
  }
  // A node has several Props objects; only one of them names volumes.
  if (auto level = levelFromProps(param); level && level != bound.node.level) {
    bound.node.level = std::move(level);
    bound.session.announce(Change::level);
  }
}

void Session::Events::cardInfo(void* data, const pw_device_info* info) {
  auto& bound = *static_cast<BoundCard*>(data);
  if ((info->change_mask & PW_DEVICE_CHANGE_MASK_PROPS) != 0U && info->props != nullptr) {
    bound.card.properties = propertiesOf(info->props);
    bound.session.announce(Change::objects);
  }
  // Asked each time: a subscription tells nothing of the cards that another process brings into the
  // session, and the session manager is such a process.
  if ((info->change_mask & PW_DEVICE_CHANGE_MASK_PARAMS) != 0U) {
    pw_device_enum_params(reinterpret_cast<pw_device*>(bound.proxy), 0, SPA_PARAM_Route, 0,
                          UINT32_MAX, nullptr);
  }
}

void Session::Events::cardParam(void* data, int /*seq*/, std::uint32_t id, std::uint32_t /*index*/,
                                std::uint32_t /*next*/, const spa_pod* param) {
  auto& bound = *static_cast<BoundCard*>(data);
  if (id != SPA_PARAM_Route || param == nullptr) {
    return;
  }
  if (auto route = routeFromParam(param)) {
    bound.card.routes[route->device] = std::move(*route);
    bound.session.announce(Change::level);
  }
}

void Session::Events::clientInfo(void* data, const pw_client_info* info) {
  auto& bound = *static_cast<BoundClient*>(data);
  bound.client.hasInfo = true;
  if ((info->change_mask & PW_CLIENT_CHANGE_MASK_PROPS) != 0U && info->props != nullptr) {
    bound.client.properties = propertiesOf(info->props);
    bound.session.announce(Change::objects);
  }
}

int Session::Events::metadataProperty(void* data, std::uint32_t subject, const char* key,
                                      const char* type, const char* value) {
  auto& bound = *static_cast<BoundMetadata*>(data);
  if (key == nullptr) {
    std::erase_if(bound.values, [&](const auto& entry) { return entry.first.first == subject; });
  } else if (value == nullptr) {
    bound.values.erase({subject, key});
  } else {
    bound.values[{subject, key}] = {type == nullptr ? "" : type, value};
  }
  bound.session.announce(Change::metadata);
  return 0;
}

}  // namespace orvelle::pipewire
