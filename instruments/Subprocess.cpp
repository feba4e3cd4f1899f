#include "instruments/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

namespace orvelle::instruments {
namespace {

void throwIfFailed(int error, const std::string& what) {
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), what);
  }
}

std::pair<FileDescriptor, FileDescriptor> makePipe() {
  std::array<int, 2> ends{};
  throwIfFailed(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Texts as the C interface wants them; valid as long as `texts` is.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

/// User and system time. What comes before them in the line is a name, which may hold anything, and
/// eleven fields behind its bracket.
double cpuSecondsIn(const std::filesystem::path& stat) {
  std::ifstream stream(stat);
  std::string line;
  std::getline(stream, line);
  const std::size_t bracket = line.rfind(')');
  if (bracket == std::string::npos) {
    return 0.0;
  }
  std::istringstream fields(line.substr(bracket + 1));
  std::string skipped;
  for (int field = 0; field < 11; ++field) {
    fields >> skipped;
  }
  double userTicks = 0.0;
  double systemTicks = 0.0;
  fields >> userTicks >> systemTicks;
  return (userTicks + systemTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// The file actions and attributes of one spawn.
class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

}  // namespace

std::int64_t monotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    reset();
    descriptor_ = other.release();
  }
  return *this;
}

int FileDescriptor::release() {
  return std::exchange(descriptor_, -1);
}

void FileDescriptor::reset() {
  if (isOpen()) {
    close(release());
  }
}

Subprocess::Subprocess(const std::vector<std::string>& command, const Environment& environment) {
  spawn(command, environment);
  process_ = FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  wake_ = FileDescriptor(eventfd(0, EFD_CLOEXEC));
  listener_ = std::thread([this] { listen(); });
}

Subprocess::~Subprocess() {
  kill(-pid_, SIGKILL);
  // The listener reaps the process; grandchildren that hold the pipes open cannot hold it up.
  wait(milliseconds(5000));
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wake_.get(), &one, sizeof one);
  listener_.join();
}

void Subprocess::spawn(const std::vector<std::string>& command, const Environment& environment) {
  auto output = makePipe();
  auto error = makePipe();

  SpawnSettings settings;
  posix_spawn_file_actions_addopen(&settings.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&settings.actions, output.second.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&settings.actions, error.second.get(), STDERR_FILENO);
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&settings.attributes, &none);
  posix_spawnattr_setsigdefault(&settings.attributes, &all);
  posix_spawnattr_setpgroup(&settings.attributes, 0);
  posix_spawnattr_setflags(
      &settings.attributes,
      static_cast<short>(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));

  std::vector<std::string> arguments = command;
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) {
    variables.emplace_back(name).append("=").append(value);
  }
  startNs_ = monotonicNanoseconds();
  throwIfFailed(
      posix_spawnp(&pid_, arguments.front().c_str(), &settings.actions, &settings.attributes,
                   pointersTo(arguments).data(), pointersTo(variables).data()),
      "cannot start " + command.front());
  output_.pipe = std::move(output.first);
  error_.pipe = std::move(error.first);
  fcntl(output_.pipe.get(), F_SETFL, O_NONBLOCK);
  fcntl(error_.pipe.get(), F_SETFL, O_NONBLOCK);
}

void Subprocess::signal(int number) {
  const std::lock_guard lock(mutex_);
  if (!status_) {
    kill(pid_, number);
  }
}

std::optional<int> Subprocess::wait(milliseconds limit) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [this] { return status_.has_value(); });
  return status_;
}

std::int64_t Subprocess::exitNs() const {
  const std::lock_guard lock(mutex_);
  return exitNs_;
}

std::optional<OutputLine> Subprocess::waitForLine(std::string_view text, milliseconds limit) {
  std::unique_lock lock(mutex_);
  std::size_t next = 0;
  const OutputLine* found = nullptr;
  changed_.wait_for(lock, limit, [&] {
    for (; next < lines_.size() && found == nullptr; ++next) {
      if (lines_[next].text.find(text) != std::string::npos) {
        found = &lines_[next];
      }
    }
    return found != nullptr || status_.has_value();
  });
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

std::vector<OutputLine> Subprocess::lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

std::string Subprocess::standardOutput() const {
  const std::lock_guard lock(mutex_);
  return output_.text;
}

std::string Subprocess::standardError() const {
  const std::lock_guard lock(mutex_);
  return error_.text;
}

ProcessUsage usageOf(pid_t process) {
  ProcessUsage usage;
  const std::filesystem::path directory = "/proc/" + std::to_string(process);
  std::ifstream status(directory / "status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) {
      usage.residentKiB = std::stol(line.substr(6));
    } else if (line.starts_with("Threads:")) {
      usage.threads = std::stoi(line.substr(8));
    }
  }
  usage.cpuSeconds = cpuSecondsIn(directory / "stat");
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory / "fd", error), end;
       !error && entry != end; entry.increment(error)) {
    ++usage.descriptors;
  }
  return usage;
}

void Subprocess::listen() {
  for (;;) {
    // A pipe at its end, or the process once reaped, is left out: poll ignores negative numbers.
    std::array<pollfd, 4> watched{{{output_.pipe.get(), POLLIN, 0},
                                   {error_.pipe.get(), POLLIN, 0},
                                   {process_.get(), POLLIN, 0},
                                   {wake_.get(), POLLIN, 0}}};
    if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
      return;
    }
    const std::lock_guard lock(mutex_);
    readAvailable(output_, false);
    readAvailable(error_, true);
    if (watched[2].revents != 0) {
      publishExit();
    }
    changed_.notify_all();
    if (watched[3].revents != 0) {
      return;
    }
  }
}

void Subprocess::readAvailable(Stream& stream, bool isError) {
  std::array<char, 16384> buffer{};
  while (stream.pipe.isOpen()) {
    const ssize_t count = read(stream.pipe.get(), buffer.data(), buffer.size());
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
      stream.pipe.reset();
    }
    if (count <= 0) {
      break;
    }
    stream.text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  const std::int64_t now = monotonicNanoseconds();
  for (std::size_t end = 0; (end = stream.text.find('\n', stream.lineStart)) != std::string::npos;
       stream.lineStart = end + 1) {
    lines_.push_back({now, isError, stream.text.substr(stream.lineStart, end - stream.lineStart)});
  }
}

void Subprocess::publishExit() {
  exitNs_ = monotonicNanoseconds();
  int raw = 0;
  waitpid(pid_, &raw, 0);
  // What the process wrote last is in the pipes by now.
  readAvailable(output_, false);
  readAvailable(error_, true);
  status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  process_.reset();
}

}  // namespace orvelle::instruments
