// What the session holds, and what can be asked of it.

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <spa/param/param.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "orvelle/platform/Process.h"
#include "orvelle/platform/pipewire/Pods.h"
#include "orvelle/platform/pipewire/Session.h"
#include "orvelle/platform/pipewire/SessionEvents.h"

namespace orvelle::pipewire {

std::vector<const Node*> Session::nodes() const {
  std::vector<const Node*> all;
  for (const std::uint32_t id : nodeOrder_) {
    all.push_back(&nodes_.at(id)->node);
  }
  return all;
}

const Node* Session::node(std::uint32_t id) const {
  const auto found = nodes_.find(id);
  return found == nodes_.end() ? nullptr : &found->second->node;
}

const Node* Session::nodeNamed(std::string_view name) const {
  const auto all = nodes();
  const auto found = std::ranges::find(all, name, &Node::name);
  return found == all.end() ? nullptr : *found;
}

const Client* Session::clientOf(const Node& node) const {
  const auto found = clients_.find(numberOf(node.properties, "client.id"));
  return found == clients_.end() ? nullptr : &found->second->client;
}

std::optional<std::uint32_t> Session::clientIDOf(std::uint32_t node) const {
  std::uint32_t client = SPA_ID_INVALID;
  if (const Node* mirrored = this->node(node)) {
    client = numberOf(mirrored->properties, "client.id");
  } else if (const auto other = clientsOfOthers_.find(node); other != clientsOfOthers_.end()) {
    client = other->second;
  }
  return client == SPA_ID_INVALID ? std::nullopt : std::optional(client);
}

bool Session::isOwned(std::string_view nodeName) const {
  const Node* node = nodeNamed(nodeName);
  const Client* client = node == nullptr ? nullptr : clientOf(*node);
  if (client == nullptr) {
    return false;
  }
  const auto pid = static_cast<std::int32_t>(numberOf(client->properties, "pipewire.sec.pid"));
  return processStartTime(pid).has_value();
}

const Card* Session::cardOf(const Node& node) const {
  const auto found = cards_.find(numberOf(node.properties, "device.id"));
  return found == cards_.end() ? nullptr : &found->second->card;
}

const Route* Session::routeOf(const Node& node) const {
  const Card* card = cardOf(node);
  if (card == nullptr) {
    return nullptr;
  }
  const std::uint32_t device = numberOf(node.properties, "card.profile.device");
  const auto found = card->routes.find(static_cast<std::int32_t>(device));
  return found == card->routes.end() || !found->second.level ? nullptr : &found->second;
}

std::vector<const Port*> Session::ports(std::uint32_t node, bool input) const {
  std::vector<const Port*> found;
  if (const auto all = portsOfNodes_.find(node); all != portsOfNodes_.end()) {
    std::ranges::copy_if(all->second, std::back_inserter(found),
                         [input](const Port* port) { return port->isInput == input; });
  }
  std::ranges::sort(found, {}, &Port::index);
  return found;
}

void Session::addPort(Port&& port) {
  const std::uint32_t id = port.id;
  removePort(id);
  const Port& added = ports_.emplace(id, std::move(port)).first->second;
  portsOfNodes_[added.node].push_back(&added);
}

bool Session::removePort(std::uint32_t id) {
  const auto found = ports_.find(id);
  if (found == ports_.end()) {
    return false;
  }
  const auto siblings = portsOfNodes_.find(found->second.node);
  std::erase(siblings->second, &found->second);
  if (siblings->second.empty()) {
    portsOfNodes_.erase(siblings);
  }
  ports_.erase(found);
  return true;
}

bool Session::hasStereoPorts(const Node& node) const {
  return ports(node.id, true).size() >= 2 && ports(node.id, false).size() >= 2;
}

std::vector<Link> Session::linksInto(std::uint32_t node) const {
  std::vector<Link> found;
  for (const auto& [id, link] : links_) {
    if (link.inputNode == node) {
      found.push_back(link);
    }
  }
  return found;
}

std::vector<Link> Session::linksFrom(std::uint32_t node) const {
  std::vector<Link> found;
  for (const auto& [id, link] : links_) {
    if (link.outputNode == node) {
      found.push_back(link);
    }
  }
  return found;
}

bool Session::hasMetadata(std::string_view metadata) const {
  return std::ranges::any_of(metadata_,
                             [&](const auto& entry) { return entry.second->name == metadata; });
}

std::optional<MetadataEntry> Session::metadataEntry(std::string_view metadata,
                                                    std::uint32_t subject,
                                                    std::string_view key) const {
  for (const auto& [id, bound] : metadata_) {
    const auto value = bound->values.find({subject, std::string(key)});
    if (bound->name == metadata && value != bound->values.end()) {
      return value->second;
    }
  }
  return std::nullopt;
}

std::optional<std::string> Session::metadataValue(std::string_view metadata, std::uint32_t subject,
                                                  std::string_view key) const {
  const auto entry = metadataEntry(metadata, subject, key);
  return entry ? std::optional(entry->value) : std::nullopt;
}

// Requests

bool Session::setMetadata(std::string_view metadata, std::uint32_t subject, const char* key,
                          const char* type, const char* value) {
  for (const auto& [id, bound] : metadata_) {
    if (bound->name == metadata && isConnected_) {
      pw_metadata_set_property(reinterpret_cast<pw_metadata*>(bound->proxy), subject, key, type,
                               value);
      return true;
    }
  }
  return false;
}

void Session::setNodeLevel(std::uint32_t node, const ChannelLevel& level) {
  const auto found = nodes_.find(node);
  if (found == nodes_.end()) {
    return;
  }
  PodBuffer buffer;
  pw_node_set_param(reinterpret_cast<pw_node*>(found->second->proxy), SPA_PARAM_Props, 0,
                    buildProps(buffer, level));
}

void Session::setRouteLevel(const Node& node, const Route& route, const ChannelLevel& level) {
  const auto found = cards_.find(numberOf(node.properties, "device.id"));
  if (found == cards_.end()) {
    return;
  }
  PodBuffer buffer;
  pw_device_set_param(reinterpret_cast<pw_device*>(found->second->proxy), SPA_PARAM_Route, 0,
                      buildRoute(buffer, route, level));
}

Session::Rates Session::rates(std::uint32_t node) {
  // Looked up anew for each question: the node may go away while the answer is awaited.
  const auto ask = [&](std::uint32_t param) {
    std::vector<RateChoice> answers;
    if (const auto found = nodes_.find(node); found != nodes_.end()) {
      found->second->askedParam = param;
      found->second->answers.clear();
      pw_node_enum_params(reinterpret_cast<pw_node*>(found->second->proxy), 0, param, 0, UINT32_MAX,
                          nullptr);
    }
    roundTrip();
    if (const auto found = nodes_.find(node); found != nodes_.end()) {
      found->second->askedParam = SPA_ID_INVALID;
      answers = std::move(found->second->answers);
    }
    std::erase_if(answers, [](const RateChoice& choice) { return choice.values.empty(); });
    return answers;
  };

  Rates rates;
  if (const auto inUse = ask(SPA_PARAM_Format); !inUse.empty()) {
    rates.current = inUse.front().values.front();
  }
  if (const auto possible = ask(SPA_PARAM_EnumFormat); !possible.empty()) {
    const RateChoice& choice = possible.front();
    rates.preferred = choice.values.front();
    const auto [lowest, highest] = std::ranges::minmax(choice.values);
    rates.lowest = lowest;
    rates.highest = highest;
    if (!choice.isRange) {
      rates.choices = choice.values;
    }
  }
  return rates;
}

}  // namespace orvelle::pipewire
