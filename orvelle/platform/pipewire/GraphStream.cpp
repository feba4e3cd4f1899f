#include "orvelle/platform/pipewire/GraphStream.h"

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace orvelle::pipewire {

namespace {

/// The graph runs as slowly as its most patient client allows. Without a wish of ours, one player
/// with a large buffer would make the volume control feel sluggish.
constexpr const char* kLatency = "1024/48000";

/// The ports that carry left and right: by name where the node names them, else the first two; a
/// mono node's only port carries both.
struct FrontPorts {
  const Port* left = nullptr;
  const Port* right = nullptr;

  [[nodiscard]] bool isMono() const { return left == right; }
};

std::optional<FrontPorts> frontPorts(const std::vector<const Port*>& ports) {
  if (ports.empty()) {
    return std::nullopt;
  }
  const auto named = [&](std::string_view channel) {
    const auto found = std::ranges::find(ports, channel, &Port::channel);
    return found == ports.end() ? nullptr : *found;
  };
  if (named("FL") != nullptr && named("FR") != nullptr) {
    return FrontPorts{named("FL"), named("FR")};
  }
  return FrontPorts{ports.front(), ports.size() == 1 ? ports.front() : ports[1]};
}

std::optional<FrontPorts> frontPortsOf(const Session& session, const std::string& nodeName,
                                       bool input) {
  const Node* node = nodeName.empty() ? nullptr : session.nodeNamed(nodeName);
  return node == nullptr ? std::nullopt : frontPorts(session.ports(node->id, input));
}

}  // namespace

/// A link between two ports, gone when this is.
struct GraphStream::OwnLink {
  std::uint32_t id = SPA_ID_INVALID;
  bool isGone = false;

  OwnLink(Session& session, pw_proxy* proxy) : session_(session), proxy_(proxy) {
    static const pw_proxy_events kEvents = [] {
      pw_proxy_events events{};
      events.version = PW_VERSION_PROXY_EVENTS;
      events.bound = [](void* data, std::uint32_t globalId) {
        auto& link = *static_cast<OwnLink*>(data);
        link.id = globalId;
        link.session_.wake();
      };
      events.removed = [](void* data) { static_cast<OwnLink*>(data)->isGone = true; };
      events.error = [](void* data, int /*seq*/, int /*result*/, const char* /*message*/) {
        static_cast<OwnLink*>(data)->isGone = true;
      };
      return events;
    }();
    pw_proxy_add_listener(proxy_, &hook_, &kEvents, this);
  }
  OwnLink(const OwnLink&) = delete;
  OwnLink& operator=(const OwnLink&) = delete;
  ~OwnLink() {
    spa_hook_remove(&hook_);
    pw_proxy_destroy(proxy_);
  }

 private:
  Session& session_;
  pw_proxy* proxy_;
  spa_hook hook_{};
};

GraphStream::GraphStream(Session& session, GraphStreamSettings settings, IOBlock block)
    : session_(session), settings_(std::move(settings)), cycle_(std::move(block)) {
  if (!session_.isConnected() || !connect()) {
    return;
  }
  linkUp();
}

GraphStream::~GraphStream() {
  pw_filter* filter = std::exchange(filter_, nullptr);
  links_.clear();
  if (filter != nullptr) {
    // With links still on their way out, the library would forget to close a descriptor.
    session_.roundTrip();
    pw_filter_destroy(filter);
  }
}

bool GraphStream::connect() {
  static const pw_filter_events kEvents = [] {
    pw_filter_events events{};
    events.version = PW_VERSION_FILTER_EVENTS;
    events.process = onProcess;
    return events;
  }();
  pw_properties* properties =
      pw_properties_new(PW_KEY_NODE_NAME, settings_.name.c_str(), PW_KEY_NODE_DESCRIPTION,
                        settings_.description.c_str(), PW_KEY_NODE_LATENCY, kLatency, nullptr);
  if (settings_.forcedRate != 0) {
    pw_properties_setf(properties, PW_KEY_NODE_FORCE_RATE, "%d", settings_.forcedRate);
  }
  filter_ = pw_filter_new(session_.core(), settings_.name.c_str(), properties);
  if (filter_ == nullptr) {
    return false;
  }
  if (!settings_.inputNode.empty()) {
    ports_[inputLeft] = addPort(inputLeft, "input_FL", "FL");
    ports_[inputRight] = addPort(inputRight, "input_FR", "FR");
  }
  ports_[outputLeft] = addPort(outputLeft, "output_FL", "FL");
  ports_[outputRight] = addPort(outputRight, "output_FR", "FR");
  ports_[outputMono] = addPort(outputMono, "output_MONO", "MONO");
  hook_ = std::make_unique<spa_hook>();
  pw_filter_add_listener(filter_, hook_.get(), &kEvents, this);
  return pw_filter_connect(filter_, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) >= 0;
}

void* GraphStream::addPort(PortIndex index, const char* name, const char* channel) {
  const bool isInput = index == inputLeft || index == inputRight;
  return pw_filter_add_port(
      filter_, isInput ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS,
      1,
      pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, name,
                        PW_KEY_AUDIO_CHANNEL, channel, nullptr),
      nullptr, 0);
}

void GraphStream::onProcess(void* data, spa_io_position* position) {
  auto& stream = *static_cast<GraphStream*>(data);
  const auto frames = static_cast<std::uint32_t>(position->clock.duration);
  const auto buffer = [&](PortIndex index) {
    void* port = stream.ports_[index];
    return port == nullptr ? nullptr : static_cast<float*>(pw_filter_get_dsp_buffer(port, frames));
  };
  stream.cycle_.run({.inputLeft = buffer(inputLeft),
                     .inputRight = buffer(inputRight),
                     .outputLeft = buffer(outputLeft),
                     .outputRight = buffer(outputRight),
                     .outputMono = buffer(outputMono)},
                    frames);
}

// Links

std::optional<std::uint32_t> GraphStream::ownPort(PortIndex index) const {
  static constexpr std::array<std::string_view, kPorts> kChannels = {"FL", "FR", "FL", "FR",
                                                                     "MONO"};
  const bool isInput = index == inputLeft || index == inputRight;
  const auto ports = session_.ports(pw_filter_get_node_id(filter_), isInput);
  const auto found = std::ranges::find(ports, kChannels.at(index), &Port::channel);
  return found == ports.end() ? std::nullopt : std::optional((*found)->id);
}

std::vector<GraphStream::PortPair> GraphStream::wantedLinks() const {
  std::vector<PortPair> wanted;
  if (const auto source = frontPortsOf(session_, settings_.inputNode, false)) {
    for (const auto& [from, to] :
         {std::pair(source->left, inputLeft), std::pair(source->right, inputRight)}) {
      if (const auto own = ownPort(to)) {
        wanted.emplace_back(from->id, *own);
      }
    }
  }
  if (const auto sink = frontPortsOf(session_, settings_.outputNode, true)) {
    const auto give = [&](PortIndex from, const Port* to) {
      if (const auto own = ownPort(from)) {
        wanted.emplace_back(*own, to->id);
      }
    };
    if (sink->isMono()) {
      give(outputMono, sink->left);
    } else {
      give(outputLeft, sink->left);
      give(outputRight, sink->right);
    }
  }
  return wanted;
}

void GraphStream::linkUp() {
  if (filter_ == nullptr || !session_.isConnected()) {
    return;
  }
  const std::vector<PortPair> wanted = wantedLinks();
  std::erase_if(links_, [&](const auto& entry) {
    return entry.second->isGone || std::ranges::find(wanted, entry.first) == wanted.end();
  });
  for (const PortPair& ports : wanted) {
    if (!links_.contains(ports)) {
      makeLink(ports);
    }
  }
}

void GraphStream::makeLink(const PortPair& ports) {
  pw_properties* properties = pw_properties_new(nullptr, nullptr);
  pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", ports.first);
  pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", ports.second);
  auto* proxy = static_cast<pw_proxy*>(
      pw_core_create_object(session_.core(), "link-factory", PW_TYPE_INTERFACE_Link,
                            PW_VERSION_LINK, &properties->dict, 0));
  pw_properties_free(properties);
  if (proxy != nullptr) {
    links_[ports] = std::make_unique<OwnLink>(session_, proxy);
  }
}

bool GraphStream::isLinked() const {
  const auto sink = frontPortsOf(session_, settings_.outputNode, true);
  if (!sink) {
    return false;
  }
  const std::size_t inputs = settings_.inputNode.empty() ? 0 : 2;
  const std::size_t outputs = sink->isMono() ? 1 : 2;
  return links_.size() == inputs + outputs && std::ranges::all_of(links_, [&](const auto& entry) {
           return !entry.second->isGone && session_.hasLink(entry.second->id);
         });
}

}  // namespace orvelle::pipewire
