// A whole audio session for one test: server, session manager and PulseAudio server, apart from
// every other session of the machine.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

#include "instruments/SessionClient.h"
#include "instruments/SessionOptions.h"
#include "instruments/Subprocess.h"

namespace orvelle::instruments {

/// A directory of its own under a short path (socket names are limited), mode 700, removed with its
/// owner.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// Replaces every variable of this process that could lead a client to another session, and puts
/// all of them back at the end.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(Environment replacement);
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment();

 private:
  Environment removed_;
  Environment set_;
};

/// Runs from construction to destruction; one at a time in a process. Threads that read the
/// environment begin after it and end before it.
class PrivateSession {
 public:
  /// Returns when clients can play: the default output is known and both servers answer. Throws
  /// std::runtime_error with the servers' own words when that takes too long.
  explicit PrivateSession(const SessionOptions& options);

  /// The whole environment for a client process. This process has it too while the session lives,
  /// so that in-process clients need nothing else.
  [[nodiscard]] const Environment& environment() const { return environment_; }
  /// Where a test may keep its files; removed with the session.
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }
  /// From the first process to readiness.
  [[nodiscard]] double startSeconds() const { return startSeconds_; }

  /// Ends and starts the session manager again, as a package update does. Returns at once.
  void restartSessionManager();
  /// The same for the PulseAudio server.
  void restartPulseServer();
  /// The same for the server itself, and for the other two, which do not outlive it. Returns when
  /// it answers. Every connection of the test's own is lost.
  void restartServer();

 private:
  [[nodiscard]] Environment makeEnvironment() const;
  [[nodiscard]] std::unique_ptr<Subprocess> startServer(const std::string& program) const;
  void startMainServer();
  void waitUntilReady(std::size_t outputs);
  [[nodiscard]] std::string serverMessages() const;

  TemporaryDirectory directory_;
  Environment environment_;
  ScopedEnvironment scopedEnvironment_;
  std::unique_ptr<Subprocess> server_;
  std::unique_ptr<Subprocess> sessionManager_;
  std::unique_ptr<Subprocess> pulseServer_;
  double startSeconds_ = 0.0;
};

}  // namespace orvelle::instruments
