#include "instruments/DesktopPanel.h"

#include <spa/param/props.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

#include "instruments/Probe.h"
#include "instruments/Subprocess.h"

namespace orvelle::instruments {
namespace {

/// Of a stream, in the default metadata: the output that it was sent to.
constexpr const char* targetKey = "target.object";

/// The value of "name" in a small JSON object; empty when there is none.
std::string nameIn(const char* json) {
  const std::string_view text = json != nullptr ? json : "";
  constexpr std::string_view key = "\"name\"";
  const std::size_t found = text.find(key);
  if (found == std::string_view::npos) {
    return {};
  }
  const std::size_t begin = text.find('"', found + key.size());
  const std::size_t end = text.find('"', begin + 1);
  return std::string(text.substr(begin + 1, end - begin - 1));
}

/// A node bound for a moment.
class BoundNode {
 public:
  BoundNode(SessionClient& client, std::uint32_t id) : client_(client) {
    const SessionClient::Lock lock(client_);
    node_ = static_cast<pw_node*>(
        pw_registry_bind(client_.registry(), id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
    pw_node_add_listener(node_, &listener_, &events, this);
  }
  BoundNode(const BoundNode&) = delete;
  BoundNode& operator=(const BoundNode&) = delete;
  ~BoundNode() {
    const SessionClient::Lock lock(client_);
    spa_hook_remove(&listener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(node_));
  }

  NodeVolume read() {
    {
      const SessionClient::Lock lock(client_);
      pw_node_enum_params(node_, 0, SPA_PARAM_Props, 0, UINT32_MAX, nullptr);
    }
    client_.roundTrip();
    const SessionClient::Lock lock(client_);
    return volume_;
  }

  void write(const spa_pod* properties) {
    {
      const SessionClient::Lock lock(client_);
      pw_node_set_param(node_, SPA_PARAM_Props, 0, properties);
    }
    client_.roundTrip();
  }

 private:
  static void param(void* data, int /*sequence*/, std::uint32_t id, std::uint32_t /*index*/,
                    std::uint32_t /*next*/, const spa_pod* param) {
    NodeVolume& volume = static_cast<BoundNode*>(data)->volume_;
    if (id != SPA_PARAM_Props || param == nullptr) {
      return;
    }
    if (const spa_pod_prop* found = spa_pod_find_prop(param, nullptr, SPA_PROP_channelVolumes)) {
      std::array<float, 64> values{};
      const std::uint32_t count =
          spa_pod_copy_array(&found->value, SPA_TYPE_Float, values.data(), values.size());
      volume.linear.assign(values.begin(), values.begin() + count);
    }
    if (const spa_pod_prop* found = spa_pod_find_prop(param, nullptr, SPA_PROP_mute)) {
      spa_pod_get_bool(&found->value, &volume.isMuted);
    }
  }

  static constexpr pw_node_events events = [] {
    pw_node_events filled{};
    filled.version = PW_VERSION_NODE_EVENTS;
    filled.param = param;
    return filled;
  }();

  SessionClient& client_;
  pw_node* node_ = nullptr;
  spa_hook listener_{};
  NodeVolume volume_;
};

/// Asks where a stream was sent. Servers tell changes about an object only to clients that have
/// spoken to them since it appeared: a listener that keeps quiet would miss them.
class TargetReader {
 public:
  TargetReader(SessionClient& client, std::uint32_t metadataID, std::uint32_t stream)
      : client_(client), stream_(stream) {
    client_.roundTrip();
    const SessionClient::Lock lock(client_);
    metadata_ = static_cast<pw_metadata*>(pw_registry_bind(
        client_.registry(), metadataID, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
    pw_metadata_add_listener(metadata_, &listener_, &events, this);
  }
  TargetReader(const TargetReader&) = delete;
  TargetReader& operator=(const TargetReader&) = delete;
  ~TargetReader() {
    const SessionClient::Lock lock(client_);
    spa_hook_remove(&listener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(metadata_));
  }

  std::string read() {
    client_.roundTrip();
    const SessionClient::Lock lock(client_);
    return target_;
  }

 private:
  static int property(void* data, std::uint32_t subject, const char* key, const char* /*type*/,
                      const char* value) {
    auto& self = *static_cast<TargetReader*>(data);
    if (subject == self.stream_ && key != nullptr && std::string_view(key) == targetKey) {
      self.target_ = value != nullptr ? value : "";
    }
    return 0;
  }

  static constexpr pw_metadata_events events{PW_VERSION_METADATA_EVENTS, property};

  SessionClient& client_;
  const std::uint32_t stream_;
  pw_metadata* metadata_ = nullptr;
  spa_hook listener_{};
  std::string target_;
};

/// Memory for one small parameter.
struct ParameterBuilder {
  std::array<std::uint8_t, 1024> bytes{};
  spa_pod_builder builder{};

  ParameterBuilder() {
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  }
};

}  // namespace

struct DesktopPanel::Events {
  static int property(void* data, std::uint32_t subject, const char* key, const char* /*type*/,
                      const char* value) {
    auto& self = *static_cast<DesktopPanel*>(data);
    if (subject != PW_ID_CORE || key == nullptr) {
      return 0;
    }
    if (std::string_view(key) == "default.audio.sink") {
      self.defaultChanges_.push_back({monotonicNanoseconds(), nameIn(value)});
    } else if (std::string_view(key) == "default.configured.audio.sink") {
      self.configuredSink_ = nameIn(value);
    }
    return 0;
  }

  static constexpr pw_metadata_events metadata{PW_VERSION_METADATA_EVENTS, property};
};

float NodeVolume::cubic() const {
  return linear.empty() ? 0.0F : std::cbrt(*std::max_element(linear.begin(), linear.end()));
}

DesktopPanel::DesktopPanel() : client_("desktop panel", this) {
  // The metadata was bound while the list of objects came in; its values follow.
  client_.roundTrip();
}

DesktopPanel::~DesktopPanel() {
  const SessionClient::Lock lock(client_);
  if (default_ != nullptr) {
    spa_hook_remove(&defaultListener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(default_));
  }
  if (settings_ != nullptr) {
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(settings_));
  }
}

void DesktopPanel::objectAdded(SessionClient& client, const SessionObject& object) {
  if (object.type != PW_TYPE_INTERFACE_Metadata) {
    return;
  }
  const auto bind = [&] {
    return static_cast<pw_metadata*>(pw_registry_bind(
        client.registry(), object.id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  };
  const std::string name = object.property(PW_KEY_METADATA_NAME);
  if (name == "default" && default_ == nullptr) {
    default_ = bind();
    defaultID_ = object.id;
    pw_metadata_add_listener(default_, &defaultListener_, &Events::metadata, this);
  } else if (name == "settings" && settings_ == nullptr) {
    settings_ = bind();
  }
}

void DesktopPanel::objectRemoved(SessionClient& /*client*/, const SessionObject& object) {
  // It goes and returns with the session manager.
  if (default_ != nullptr && object.id == defaultID_) {
    spa_hook_remove(&defaultListener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(default_));
    default_ = nullptr;
  }
}

std::string DesktopPanel::defaultSink() const {
  const SessionClient::Lock lock(client_);
  return defaultChanges_.empty() ? std::string() : defaultChanges_.back().name;
}

std::string DesktopPanel::configuredSink() const {
  const SessionClient::Lock lock(client_);
  return configuredSink_;
}

std::vector<DefaultChange> DesktopPanel::defaultChanges() const {
  const SessionClient::Lock lock(client_);
  return defaultChanges_;
}

bool DesktopPanel::waitForDefault(std::string_view name, std::chrono::milliseconds limit) const {
  return SessionClient::waitFor([&] { return defaultSink() == name; }, limit);
}

void DesktopPanel::setMetadata(pw_metadata* metadata, std::uint32_t subject, const std::string& key,
                               const char* type, const std::string& value) {
  if (metadata == nullptr) {
    throw std::runtime_error("the session has no metadata for " + key);
  }
  {
    const SessionClient::Lock lock(client_);
    pw_metadata_set_property(metadata, subject, key.c_str(), type,
                             value.empty() ? nullptr : value.c_str());
  }
  client_.roundTrip();
}

std::int64_t DesktopPanel::configureSink(const std::string& name) {
  setMetadata(default_, PW_ID_CORE, "default.configured.audio.sink", "Spa:String:JSON",
              R"({ "name": ")" + name + R"(" })");
  return monotonicNanoseconds();
}

std::uint32_t DesktopPanel::idOf(std::string_view node) const {
  const auto found = client_.node(node);
  if (!found) {
    throw std::runtime_error("the session has no node " + std::string(node));
  }
  return found->id;
}

void DesktopPanel::sendStream(std::string_view stream, const std::string& target) {
  const bool isSerial = target.find_first_not_of("0123456789") == std::string::npos;
  setMetadata(default_, idOf(stream), targetKey, isSerial ? "Spa:Id" : "Spa:String", target);
}

std::string DesktopPanel::streamTarget(std::string_view stream) {
  return TargetReader(client_, defaultID_, idOf(stream)).read();
}

std::set<std::string> DesktopPanel::outputsOf(std::string_view stream) const {
  const auto source = client_.node(stream);
  std::set<std::string> outputs;
  for (const SessionObject& link : client_.links()) {
    if (!source || link.idProperty(PW_KEY_LINK_OUTPUT_NODE) != source->id) {
      continue;
    }
    for (const SessionObject& node : client_.nodes()) {
      if (node.id == link.idProperty(PW_KEY_LINK_INPUT_NODE)) {
        outputs.insert(node.property(PW_KEY_NODE_NAME));
      }
    }
  }
  return outputs;
}

NodeVolume DesktopPanel::volume(std::string_view node) {
  return BoundNode(client_, idOf(node)).read();
}

void DesktopPanel::setVolume(std::string_view node, float cubic) {
  BoundNode bound(client_, idOf(node));
  std::vector<float> values = bound.read().linear;
  std::fill(values.begin(), values.end(), cubic * cubic * cubic);
  ParameterBuilder parameter;
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&parameter.builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  spa_pod_builder_prop(&parameter.builder, SPA_PROP_channelVolumes, 0);
  spa_pod_builder_array(&parameter.builder, sizeof(float), SPA_TYPE_Float,
                        static_cast<std::uint32_t>(values.size()), values.data());
  const auto* level = static_cast<const spa_pod*>(spa_pod_builder_pop(&parameter.builder, &frame));
  letTake(node, [&] {
    bound.write(level);
    return bound.read().linear == values;
  });
}

void DesktopPanel::setMute(std::string_view node, bool muted) {
  BoundNode bound(client_, idOf(node));
  ParameterBuilder parameter;
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&parameter.builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  spa_pod_builder_prop(&parameter.builder, SPA_PROP_mute, 0);
  spa_pod_builder_bool(&parameter.builder, muted);
  const auto* level = static_cast<const spa_pod*>(spa_pod_builder_pop(&parameter.builder, &frame));
  letTake(node, [&] {
    bound.write(level);
    return bound.read().isMuted == muted;
  });
}

void DesktopPanel::letTake(std::string_view node, const std::function<bool()>& set) {
  if (set()) {
    return;
  }
  const std::string player = "silence of the desktop panel";
  {
    const Probe silence(constantSignal(0.0F), {.name = player, .target = std::string(node)});
    if (!SessionClient::waitFor(set, milliseconds(2000))) {
      throw std::runtime_error("the session does not set the level of " + std::string(node));
    }
  }
  SessionClient::waitFor([&] { return !client_.node(player); }, milliseconds(2000));
}

void DesktopPanel::forceQuantum(int frames) {
  setMetadata(settings_, PW_ID_CORE, "clock.force-quantum", "", std::to_string(frames));
}

}  // namespace orvelle::instruments
