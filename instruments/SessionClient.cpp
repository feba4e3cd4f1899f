#include "instruments/SessionClient.h"

#include <cerrno>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "instruments/Subprocess.h"

namespace orvelle::instruments {

struct SessionClient::Events {
  static void done(void* data, std::uint32_t id, int sequence) {
    auto& self = *static_cast<SessionClient*>(data);
    if (id == PW_ID_CORE) {
      self.lastDone_ = sequence;
      pw_thread_loop_signal(self.loop_.get(), false);
    }
  }

  static void error(void* data, std::uint32_t id, int /*sequence*/, int result,
                    const char* /*message*/) {
    auto& self = *static_cast<SessionClient*>(data);
    // Everything else concerns a single object that has just gone.
    if (id == PW_ID_CORE && result == -EPIPE) {
      self.lost_ = true;
      pw_thread_loop_signal(self.loop_.get(), false);
    }
  }

  static void global(void* data, std::uint32_t id, std::uint32_t /*permissions*/, const char* type,
                     std::uint32_t /*version*/, const spa_dict* properties) {
    auto& self = *static_cast<SessionClient*>(data);
    SessionObject object{id, type, {}, monotonicNanoseconds()};
    if (properties != nullptr) {
      for (std::uint32_t index = 0; index < properties->n_items; ++index) {
        object.properties[properties->items[index].key] = properties->items[index].value;
      }
    }
    const SessionObject& added = self.objects_[id] = std::move(object);
    if (self.observer_ != nullptr) {
      self.observer_->objectAdded(self, added);
    }
  }

  static void globalRemove(void* data, std::uint32_t id) {
    auto& self = *static_cast<SessionClient*>(data);
    const auto removed = self.objects_.extract(id);
    if (self.observer_ != nullptr && !removed.empty()) {
      self.observer_->objectRemoved(self, removed.mapped());
    }
  }

  static constexpr pw_core_events core = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.done = done;
    events.error = error;
    return events;
  }();

  static constexpr pw_registry_events registry = [] {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global = global;
    events.global_remove = globalRemove;
    return events;
  }();
};

std::string SessionObject::property(const std::string& key) const {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string() : found->second;
}

std::uint32_t SessionObject::idProperty(const std::string& key) const {
  const std::string text = property(key);
  return text.empty() ? PW_ID_ANY : static_cast<std::uint32_t>(std::stoul(text));
}

SessionClient::SessionClient(const std::string& clientName, SessionObserver* observer)
    : observer_(observer) {
  static std::once_flag initialised;
  std::call_once(initialised, [] { pw_init(nullptr, nullptr); });

  loop_.reset(pw_thread_loop_new(clientName.c_str(), nullptr));
  pw_properties* properties = pw_properties_new(PW_KEY_APP_NAME, clientName.c_str(), nullptr);
  if (std::string_view(pw_get_library_version()).starts_with("0.")) {
    // Older clients get a real-time thread with this configuration only.
    pw_properties_set(properties, PW_KEY_CONFIG_NAME, "client-rt.conf");
  }
  context_.reset(pw_context_new(pw_thread_loop_get_loop(loop_.get()), properties, 0));
  core_ = context_ ? pw_context_connect(context_.get(), nullptr, 0) : nullptr;
  if (core_ == nullptr) {
    throw std::runtime_error("no PipeWire session answers");
  }
  pw_core_add_listener(core_, &coreListener_, &Events::core, this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(registry_, &registryListener_, &Events::registry, this);
  pw_thread_loop_start(loop_.get());
  roundTrip();
}

SessionClient::~SessionClient() {
  pw_thread_loop_stop(loop_.get());
  spa_hook_remove(&registryListener_);
  spa_hook_remove(&coreListener_);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  pw_core_disconnect(core_);
}

void SessionClient::roundTrip() {
  const Lock lock(*this);
  const int sequence = pw_core_sync(core_, PW_ID_CORE, 0);
  while (lastDone_ != sequence && !lost_) {
    if (pw_thread_loop_timed_wait(loop_.get(), 5) != 0) {
      throw std::runtime_error("the session does not answer any more");
    }
  }
  if (lost_) {
    throw std::runtime_error("the session has ended");
  }
}

std::vector<SessionObject> SessionClient::objects(std::string_view type) const {
  const Lock lock(*this);
  std::vector<SessionObject> found;
  for (const auto& [id, object] : objects_) {
    if (object.type == type) {
      found.push_back(object);
    }
  }
  return found;
}

std::vector<SessionObject> SessionClient::nodes() const {
  return objects(PW_TYPE_INTERFACE_Node);
}
std::vector<SessionObject> SessionClient::ports() const {
  return objects(PW_TYPE_INTERFACE_Port);
}
std::vector<SessionObject> SessionClient::links() const {
  return objects(PW_TYPE_INTERFACE_Link);
}
std::vector<SessionObject> SessionClient::clients() const {
  return objects(PW_TYPE_INTERFACE_Client);
}

std::optional<SessionObject> SessionClient::node(std::string_view name) const {
  for (SessionObject& candidate : nodes()) {
    if (candidate.property(PW_KEY_NODE_NAME) == name) {
      return std::move(candidate);
    }
  }
  return std::nullopt;
}

bool SessionClient::waitFor(const std::function<bool()>& condition,
                            std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace orvelle::instruments
