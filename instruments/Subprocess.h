// A child process of a test: started, listened to line by line, and never left behind.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvelle::instruments {

using Environment = std::map<std::string, std::string>;
using std::chrono::milliseconds;

/// CLOCK_MONOTONIC, the clock that the session stamps its cycles with.
std::int64_t monotonicNanoseconds();

/// A file descriptor that is closed with its owner.
class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  [[nodiscard]] int get() const { return descriptor_; }
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
  int release();
  void reset();

 private:
  int descriptor_ = -1;
};

/// One line that a process wrote, without its line break.
struct OutputLine {
  std::int64_t timeNs = 0;  ///< when it arrived, CLOCK_MONOTONIC
  bool isError = false;     ///< standard error rather than standard output
  std::string text;
};

/// What a process holds at the moment, from /proc.
struct ProcessUsage {
  long residentKiB = 0;
  int threads = 0;
  int descriptors = 0;
  double cpuSeconds = 0.0;  ///< used since it began, by all its threads
};
/// All zero for a process that has ended.
ProcessUsage usageOf(pid_t process);

class Subprocess {
 public:
  /// Starts `command` (looked up in PATH) in a process group of its own, with `environment` as its
  /// whole environment and an empty standard input. Throws std::system_error.
  Subprocess(const std::vector<std::string>& command, const Environment& environment);
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;
  /// Kills the whole process group where something of it still runs.
  ~Subprocess();

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] std::int64_t startNs() const { return startNs_; }

  /// Sends `number` to the process itself; does nothing once it has ended.
  void signal(int number);

  /// The exit status as a shell shows it (128 + signal when killed), or nothing when the process
  /// still runs after `limit`.
  std::optional<int> wait(milliseconds limit);
  /// When the process ended; 0 while it runs.
  [[nodiscard]] std::int64_t exitNs() const;

  /// The first line that contains `text`, as soon as it is there; nothing after `limit` or once
  /// the process has ended without it.
  std::optional<OutputLine> waitForLine(std::string_view text, milliseconds limit);
  [[nodiscard]] std::vector<OutputLine> lines() const;
  /// Everything written so far, byte for byte.
  [[nodiscard]] std::string standardOutput() const;
  [[nodiscard]] std::string standardError() const;

 private:
  struct Stream {
    FileDescriptor pipe;
    std::string text;
    std::size_t lineStart = 0;
  };

  void spawn(const std::vector<std::string>& command, const Environment& environment);
  void listen();
  void readAvailable(Stream& stream, bool isError);
  void publishExit();

  pid_t pid_ = -1;
  std::int64_t startNs_ = 0;
  FileDescriptor process_;
  FileDescriptor wake_;
  std::thread listener_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Stream output_;
  Stream error_;
  std::vector<OutputLine> lines_;
  std::optional<int> status_;
  std::int64_t exitNs_ = 0;
};

}  // namespace orvelle::instruments
