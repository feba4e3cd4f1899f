#include "orvelle/platform/pipewire/Session.h"

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <spa/param/param.h>
#include <spa/utils/result.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <system_error>
#include <utility>

#include "orvelle/platform/pipewire/Pods.h"

namespace orvelle::pipewire {

namespace {

constexpr double kRoundTripSeconds = 2.0;
/// This program's streams, this instance's and others'.
constexpr std::string_view kOwnNodesPrefix = "app.orvelle.";
/// Objects are announced, then bound, then asked for their parameters: an answer each.
constexpr int kRoundTripsToComplete = 3;

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

std::uint32_t numberOf(const Properties& properties, std::string_view key) {
  const std::string_view text = valueOf(properties, key);
  std::uint32_t number = SPA_ID_INVALID;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

bool isMirrored(const Properties& node) {
  const std::string_view mediaClass = valueOf(node, "media.class");
  return valueOf(node, "node.name").starts_with(kOwnNodesPrefix) ||
         mediaClass.starts_with("Audio/Sink") || mediaClass.starts_with("Audio/Source") ||
         mediaClass == "Audio/Duplex" || mediaClass == "Stream/Output/Audio";
}

std::string remotePath() {
  const auto variable = [](const char* name) {
    const char* value = std::getenv(name);
    return std::string(value == nullptr ? "" : value);
  };
  const std::string remote =
      variable("PIPEWIRE_REMOTE").empty() ? "pipewire-0" : variable("PIPEWIRE_REMOTE");
  for (const char* folder : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"}) {
    if (!variable(folder).empty()) {
      return variable(folder) + "/" + remote;
    }
  }
  return remote + " (XDG_RUNTIME_DIR is not set)";
}

/// Warnings of the library are for its developers; PIPEWIRE_DEBUG brings them back.
void initLibrary() {
  static const bool done = [] {
    pw_init(nullptr, nullptr);
    if (std::getenv("PIPEWIRE_DEBUG") == nullptr) {
      pw_log_set_level(SPA_LOG_LEVEL_NONE);
    }
    return true;
  }();
  static_cast<void>(done);
}

/// Up to 0.3 a client has real-time callbacks only with a configuration of that name; later
/// versions give them to every client.
bool needsRealTimeConfiguration() {
  return std::string_view(pw_get_library_version()).starts_with("0.");
}

template <class Bound>
void unbind(Bound& bound) {
  spa_hook_remove(&bound.hook);
  pw_proxy_destroy(bound.proxy);
}

}  // namespace

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

struct Session::BoundMetadata {
  Session& session;
  std::string name;
  std::map<std::pair<std::uint32_t, std::string>, std::string> values;
  pw_proxy* proxy = nullptr;
  spa_hook hook{};

  BoundMetadata(Session& owner, std::string_view metadataName)
      : session(owner), name(metadataName) {}
  BoundMetadata(const BoundMetadata&) = delete;
  BoundMetadata& operator=(const BoundMetadata&) = delete;
  ~BoundMetadata() { unbind(*this); }
};

struct Session::Timer {
  Session& session;
  std::function<void()> job;
  spa_source* source = nullptr;

  Timer(Session& owner, std::function<void()> work) : session(owner), job(std::move(work)) {}
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer() {
    if (source != nullptr) {
      pw_loop_destroy_source(pw_thread_loop_get_loop(session.loop_), source);
    }
  }

  static void fire(void* data, std::uint64_t /*expirations*/) {
    auto* timer = static_cast<Timer*>(data);
    const auto job = std::move(timer->job);
    std::erase_if(timer->session.timers_, [&](const std::unique_ptr<Timer>& candidate) {
      return candidate.get() == timer;
    });
    job();
  }
};

/// The library's callbacks, all on the loop thread with the lock held.
struct Session::Events {
  explicit Events(Session& owner) : session(owner) {}

  Session& session;
  pw_registry* registry = nullptr;
  spa_hook coreHook{};
  spa_hook registryHook{};

  static void coreInfo(void* data, const pw_core_info* info) {
    if (info->version != nullptr) {
      static_cast<Events*>(data)->session.serverVersion_ = info->version;
    }
  }

  static void coreDone(void* data, std::uint32_t /*id*/, int seq) {
    auto& session = static_cast<Events*>(data)->session;
    session.lastDone_ = seq;
    session.wake();
  }

  static void coreError(void* data, std::uint32_t id, int /*seq*/, int result,
                        const char* /*message*/) {
    // Everything else reports on single objects, which come and go: no harm done.
    if (id == PW_ID_CORE && result == -EPIPE) {
      auto& session = static_cast<Events*>(data)->session;
      session.isConnected_ = false;
      session.wake();
    }
  }

  static void registryGlobal(void* data, std::uint32_t id, std::uint32_t /*permissions*/,
                             const char* type, std::uint32_t /*version*/, const spa_dict* dict) {
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

  static void registryGlobalRemove(void* data, std::uint32_t id) {
    Session& session = static_cast<Events*>(data)->session;
    std::erase(session.nodeOrder_, id);
    const std::size_t removed = session.nodes_.erase(id) + session.cards_.erase(id) +
                                session.ports_.erase(id) + session.links_.erase(id);
    if (removed != 0) {
      session.announce(Change::objects);
    }
    if (session.metadata_.erase(id) != 0) {
      session.announce(Change::metadata);
    }
  }

  void addNode(std::uint32_t id, Properties&& properties);
  void addCard(std::uint32_t id, Properties&& properties);
  void addMetadata(std::uint32_t id, const Properties& properties);
  void addPort(std::uint32_t id, const Properties& properties);

  static void nodeInfo(void* data, const pw_node_info* info);
  static void nodeParam(void* data, int seq, std::uint32_t id, std::uint32_t index,
                        std::uint32_t next, const spa_pod* param);
  static void cardInfo(void* data, const pw_device_info* info);
  static void cardParam(void* data, int seq, std::uint32_t id, std::uint32_t index,
                        std::uint32_t next, const spa_pod* param);
  static int metadataProperty(void* data, std::uint32_t subject, const char* key, const char* type,
                              const char* value);
};

// Registry

void Session::Events::addNode(std::uint32_t id, Properties&& properties) {
  static const pw_node_events kEvents = [] {
    pw_node_events events{};
    events.version = PW_VERSION_NODE_EVENTS;
    events.info = nodeInfo;
    events.param = nodeParam;
    return events;
  }();
  if (!isMirrored(properties)) {
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

void Session::Events::addMetadata(std::uint32_t id, const Properties& properties) {
  static const pw_metadata_events kEvents = [] {
    pw_metadata_events events{};
    events.version = PW_VERSION_METADATA_EVENTS;
    events.property = metadataProperty;
    return events;
  }();
  auto bound = std::make_unique<BoundMetadata>(session, valueOf(properties, "metadata.name"));
  bound->proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(bound->proxy), &bound->hook, &kEvents,
                           bound.get());
  session.metadata_[id] = std::move(bound);
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
  session.ports_[id] = std::move(port);
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

int Session::Events::metadataProperty(void* data, std::uint32_t subject, const char* key,
                                      const char* /*type*/, const char* value) {
  auto& bound = *static_cast<BoundMetadata*>(data);
  if (key == nullptr) {
    std::erase_if(bound.values, [&](const auto& entry) { return entry.first.first == subject; });
  } else if (value == nullptr) {
    bound.values.erase({subject, key});
  } else {
    bound.values[{subject, key}] = value;
  }
  bound.session.announce(Change::metadata);
  return 0;
}

// Connection

Session::Session() : events_(std::make_unique<Events>(*this)) {
  initLibrary();
}

std::unique_ptr<Session> Session::open(std::string& problem) {
  std::unique_ptr<Session> session(new Session);
  if (!session->connect(problem)) {
    return nullptr;
  }
  return session;
}

bool Session::connect(std::string& problem) {
  static const pw_core_events kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.info = Events::coreInfo;
    events.done = Events::coreDone;
    events.error = Events::coreError;
    return events;
  }();
  static const pw_registry_events kRegistryEvents = [] {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global = Events::registryGlobal;
    events.global_remove = Events::registryGlobalRemove;
    return events;
  }();

  loop_ = pw_thread_loop_new("orvelle-pipewire", nullptr);
  pw_properties* settings = needsRealTimeConfiguration()
                                ? pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr)
                                : nullptr;
  if (loop_ != nullptr) {
    context_ = pw_context_new(pw_thread_loop_get_loop(loop_), settings, 0);
  }
  if (context_ != nullptr) {
    core_ = pw_context_connect(context_, pw_properties_new(PW_KEY_APP_NAME, "Orvelle", nullptr), 0);
  }
  if (core_ == nullptr) {
    problem = "no PipeWire session answers at " + remotePath() + " (" +
              std::generic_category().message(errno) + ")";
    return false;
  }
  isConnected_ = true;
  pw_core_add_listener(core_, &events_->coreHook, &kCoreEvents, events_.get());
  events_->registry = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(events_->registry, &events_->registryHook, &kRegistryEvents,
                           events_.get());
  pw_thread_loop_start(loop_);

  const Lock lock(*this);
  for (int i = 0; i < kRoundTripsToComplete; ++i) {
    roundTrip();
  }
  if (!isConnected_) {
    problem = "the PipeWire session at " + remotePath() + " closed the connection";
  }
  return isConnected_;
}

Session::~Session() {
  if (loop_ != nullptr) {
    pw_thread_loop_stop(loop_);
  }
  timers_.clear();
  nodes_.clear();
  cards_.clear();
  metadata_.clear();
  if (events_->registry != nullptr) {
    spa_hook_remove(&events_->registryHook);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(events_->registry));
  }
  if (core_ != nullptr) {
    spa_hook_remove(&events_->coreHook);
    pw_core_disconnect(core_);
  }
  if (context_ != nullptr) {
    pw_context_destroy(context_);
  }
  if (loop_ != nullptr) {
    pw_thread_loop_destroy(loop_);
  }
}

Session::Lock::Lock(const Session& session) : loop_(session.loop_) {
  pw_thread_loop_lock(loop_);
}

Session::Lock::~Lock() {
  pw_thread_loop_unlock(loop_);
}

void Session::announce(Change change) {
  if (onChange) {
    onChange(change);
  }
  wake();
}

void Session::wake() {
  pw_thread_loop_signal(loop_, false);
}

bool Session::waitUntil(const std::function<bool()>& condition, double seconds) {
  timespec deadline{};
  pw_thread_loop_get_time(loop_, &deadline, static_cast<std::int64_t>(seconds * 1e9));
  while (!condition()) {
    if (!isConnected_ || pw_thread_loop_timed_wait_full(loop_, &deadline) != 0) {
      return condition();
    }
  }
  return true;
}

void Session::after(double seconds, std::function<void()> job) {
  pw_loop* loop = pw_thread_loop_get_loop(loop_);
  auto timer = std::make_unique<Timer>(*this, std::move(job));
  timer->source = pw_loop_add_timer(loop, Timer::fire, timer.get());
  if (timer->source == nullptr) {
    return;
  }
  const double wholeSeconds = std::floor(seconds);
  timespec due{};
  due.tv_sec = static_cast<std::time_t>(wholeSeconds);
  due.tv_nsec = static_cast<long>((seconds - wholeSeconds) * 1e9);
  pw_loop_update_timer(loop, timer->source, &due, nullptr, false);
  timers_.push_back(std::move(timer));
}

void Session::cancelJobs() {
  timers_.clear();
}

void Session::roundTrip() {
  const int seq = pw_core_sync(core_, PW_ID_CORE, 0);
  waitUntil([&] { return lastDone_ == seq; }, kRoundTripSeconds);
}

// Mirror

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
  for (const auto& [id, port] : ports_) {
    if (port.node == node && port.isInput == input) {
      found.push_back(&port);
    }
  }
  std::ranges::sort(found, {}, &Port::index);
  return found;
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

bool Session::hasMetadata(std::string_view metadata) const {
  return std::ranges::any_of(metadata_,
                             [&](const auto& entry) { return entry.second->name == metadata; });
}

std::optional<std::string> Session::metadataValue(std::string_view metadata, std::uint32_t subject,
                                                  std::string_view key) const {
  for (const auto& [id, bound] : metadata_) {
    const auto value = bound->values.find({subject, std::string(key)});
    if (bound->name == metadata && value != bound->values.end()) {
      return value->second;
    }
  }
  return std::nullopt;
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
