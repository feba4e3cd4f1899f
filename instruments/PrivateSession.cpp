#include "instruments/PrivateSession.h"

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): setenv, mkdtemp
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "instruments/DesktopPanel.h"

namespace orvelle::instruments {
namespace {

constexpr milliseconds readinessLimit{10'000};
/// The session manager takes longer with each device that is there already.
constexpr milliseconds readinessLimitPerDevice{200};

Environment ownEnvironment() {
  Environment variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
      variables.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
  }
  return variables;
}

/// Variables by which a client finds a session, its settings or a display.
bool pointsToSession(std::string_view name) {
  constexpr std::array prefixes = {"PIPEWIRE_",    "PULSE_",  "XDG_",     "WIREPLUMBER_",
                                   "DBUS_SESSION", "DISPLAY", "WAYLAND_", "HOME"};
  return std::ranges::any_of(prefixes,
                             [name](std::string_view prefix) { return name.starts_with(prefix); });
}

/// What a process needs to run at all, and what the sanitizers read.
bool isHarmless(std::string_view name) {
  return name == "PATH" || name == "LD_LIBRARY_PATH" || name.ends_with("SAN_OPTIONS");
}

bool answers(const std::filesystem::path& socketPath) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  socketPath.string().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  const FileDescriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
         0;
}

bool waitUntil(const std::function<bool()>& condition, milliseconds limit = readinessLimit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

/// Up to 0.4 the session manager is configured in Lua.
bool sessionManagerReadsLua(const Environment& environment) {
  Subprocess process({"wireplumber", "--version"}, environment);
  process.wait(readinessLimit);
  return process.standardOutput().find("libwireplumber 0.4") != std::string::npos;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = "/tmp/orv-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp");
  }
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedEnvironment::ScopedEnvironment(Environment replacement) : set_(std::move(replacement)) {
  for (const auto& [name, value] : ownEnvironment()) {
    if (pointsToSession(name)) {
      removed_[name] = value;
      unsetenv(name.c_str());
    }
  }
  for (const auto& [name, value] : set_) {
    setenv(name.c_str(), value.c_str(), 1);
  }
}

ScopedEnvironment::~ScopedEnvironment() {
  for (const auto& [name, value] : set_) {
    if (pointsToSession(name)) {
      unsetenv(name.c_str());
    }
  }
  for (const auto& [name, value] : removed_) {
    setenv(name.c_str(), value.c_str(), 1);
  }
}

PrivateSession::PrivateSession(const SessionOptions& options)
    : environment_(makeEnvironment()), scopedEnvironment_(environment_) {
  writeSessionConfiguration(environment_.at("XDG_CONFIG_HOME"), environment_.at("XDG_DATA_HOME"),
                            options);
  if (sessionManagerReadsLua(environment_)) {
    environment_["WIREPLUMBER_CONFIG_DIR"] =
        environment_.at("XDG_CONFIG_HOME") + "/wireplumber-lua";
  }
  const std::int64_t begin = monotonicNanoseconds();
  startMainServer();
  sessionManager_ = startServer("wireplumber");
  pulseServer_ = startServer("pipewire-pulse");
  waitUntilReady(options.standIns.size());
  startSeconds_ = static_cast<double>(monotonicNanoseconds() - begin) * 1e-9;
}

Environment PrivateSession::makeEnvironment() const {
  Environment variables;
  for (const auto& [name, value] : ownEnvironment()) {
    if (isHarmless(name)) {
      variables[name] = value;
    }
  }
  const std::string base = directory_.path();
  for (const auto& [name, subdirectory] :
       {std::pair("HOME", "home"), std::pair("XDG_RUNTIME_DIR", "run"),
        std::pair("PIPEWIRE_RUNTIME_DIR", "run"), std::pair("PULSE_RUNTIME_PATH", "run/pulse"),
        std::pair("XDG_CONFIG_HOME", "config"), std::pair("XDG_STATE_HOME", "state"),
        std::pair("XDG_CACHE_HOME", "cache"), std::pair("XDG_DATA_HOME", "data")}) {
    variables[name] = base + "/" + subdirectory;
    std::filesystem::create_directories(variables[name]);
    std::filesystem::permissions(variables[name], std::filesystem::perms::owner_all);
  }
  variables["PULSE_SERVER"] = "unix:" + base + "/run/pulse/native";
  // Names an address that nobody listens at: without one, clients would start a bus of their own.
  variables["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + base + "/run/no-bus";
  return variables;
}

std::unique_ptr<Subprocess> PrivateSession::startServer(const std::string& program) const {
  // A test that is killed takes its session along: then no destructor runs.
  const std::vector<std::string> command = {"setpriv", "--pdeathsig", "KILL", "--", program};
  return std::make_unique<Subprocess>(command, environment_);
}

void PrivateSession::startMainServer() {
  server_ = startServer("pipewire");
  if (!waitUntil([&] { return answers(environment_.at("XDG_RUNTIME_DIR") + "/pipewire-0"); })) {
    throw std::runtime_error("the server does not answer\n" + serverMessages());
  }
}

void PrivateSession::waitUntilReady(std::size_t outputs) {
  const std::string pulseSocket = environment_.at("PULSE_RUNTIME_PATH") + "/native";
  DesktopPanel panel;
  const bool ready = waitUntil(
      [&] { return (outputs == 0 || !panel.defaultSink().empty()) && answers(pulseSocket); },
      readinessLimit + outputs * readinessLimitPerDevice);
  if (!ready) {
    throw std::runtime_error("the session does not become ready\n" + serverMessages());
  }
}

std::string PrivateSession::serverMessages() const {
  std::string messages;
  for (const auto* process : {&server_, &sessionManager_, &pulseServer_}) {
    if (*process) {
      messages += (*process)->standardError();
    }
  }
  return messages;
}

void PrivateSession::restartSessionManager() {
  sessionManager_.reset();
  sessionManager_ = startServer("wireplumber");
}

void PrivateSession::restartPulseServer() {
  pulseServer_.reset();
  pulseServer_ = startServer("pipewire-pulse");
}

void PrivateSession::restartServer() {
  server_.reset();
  startMainServer();
  restartSessionManager();
  restartPulseServer();
}

}  // namespace orvelle::instruments
