#include "orvelle/platform/pipewire/Session.h"

#include <pipewire/pipewire.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <system_error>
#include <utility>

#include "orvelle/platform/pipewire/SessionEvents.h"

namespace orvelle::pipewire {

namespace {

constexpr double kRoundTripSeconds = 2.0;
/// How long waiting calls may take to notice a loss.
constexpr double kLossStepSeconds = 0.001;
constexpr double kReconnectSeconds = 0.05;
/// Objects are announced, then bound, then asked for their parameters: an answer each.
constexpr int kRoundTripsToComplete = 3;

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

}  // namespace

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

Session::Session() : events_(std::make_unique<Events>(*this)) {
  initLibrary();
}

std::unique_ptr<Session> Session::open(std::string& problem) {
  std::unique_ptr<Session> session(new Session);
  if (!session->open()) {
    problem = "no PipeWire session answers at " + remotePath() + " (" +
              std::generic_category().message(errno) + ")";
    return nullptr;
  }
  const Lock lock(*session);
  for (int i = 0; i < kRoundTripsToComplete; ++i) {
    session->roundTrip();
  }
  if (!session->isConnected_) {
    problem = "the PipeWire session at " + remotePath() + " closed the connection";
  }
  return session->isConnected_ ? std::move(session) : nullptr;
}

bool Session::open() {
  loop_ = pw_thread_loop_new("orvelle-pipewire", nullptr);
  pw_properties* settings = needsRealTimeConfiguration()
                                ? pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr)
                                : nullptr;
  if (loop_ != nullptr) {
    context_ = pw_context_new(pw_thread_loop_get_loop(loop_), settings, 0);
  }
  if (context_ == nullptr || !connect()) {
    return false;
  }
  pw_thread_loop_start(loop_);
  return true;
}

bool Session::connect() {
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

  core_ = pw_context_connect(context_, pw_properties_new(PW_KEY_APP_NAME, "Orvelle", nullptr), 0);
  if (core_ == nullptr) {
    return false;
  }
  isConnected_ = true;
  lastDone_ = 0;
  pw_core_add_listener(core_, &events_->coreHook, &kCoreEvents, events_.get());
  events_->registry = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(events_->registry, &events_->registryHook, &kRegistryEvents,
                           events_.get());
  return true;
}

void Session::disconnect() {
  if (core_ == nullptr) {
    return;
  }
  spa_hook_remove(&events_->registryHook);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(std::exchange(events_->registry, nullptr)));
  spa_hook_remove(&events_->coreHook);
  pw_core_disconnect(std::exchange(core_, nullptr));
}

void Session::clearMirror() {
  nodeOrder_.clear();
  clientsOfOthers_.clear();
  nodes_.clear();
  cards_.clear();
  clients_.clear();
  metadata_.clear();
  portsOfNodes_.clear();
  ports_.clear();
  links_.clear();
}

/// Not within the event that brings the news: that is a call of what has to go.
void Session::takeLoss() {
  if (waiting_ != 0) {
    after(kLossStepSeconds, [this] { takeLoss(); });
    return;
  }
  clearMirror();
  if (onLoss) {
    onLoss();
  }
  disconnect();
  announce(Change::objects);
  reconnect();
}

void Session::reconnect() {
  if (!connect()) {
    after(kReconnectSeconds, [this] { reconnect(); });
  }
}

Session::~Session() {
  if (loop_ != nullptr) {
    pw_thread_loop_stop(loop_);
  }
  timers_.clear();
  clearMirror();
  disconnect();
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
    if (!isConnected_) {
      return false;
    }
    ++waiting_;
    const bool isLate = pw_thread_loop_timed_wait_full(loop_, &deadline) != 0;
    --waiting_;
    if (isLate) {
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
  if (!isConnected_) {
    return;
  }
  const int seq = pw_core_sync(core_, PW_ID_CORE, 0);
  waitUntil([&] { return lastDone_ == seq; }, kRoundTripSeconds);
}

}  // namespace orvelle::pipewire
