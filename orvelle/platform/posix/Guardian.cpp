#include "orvelle/platform/posix/Guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "orvelle/platform/Process.h"
#include "orvelle/platform/posix/RecordSocket.h"

extern char** environ;  // NOLINT(*-redundant-declaration): POSIX has its users declare it

namespace orvelle {

namespace {

/// Some fifty times what it takes.
constexpr int kReadyMilliseconds = 500;

#ifdef __APPLE__
// What other threads have just opened may not be marked yet as not to be inherited.
constexpr short kSpawnFlags = POSIX_SPAWN_SETSID | POSIX_SPAWN_CLOEXEC_DEFAULT;
#else
constexpr short kSpawnFlags = POSIX_SPAWN_SETSID;
#endif

int openNothing() {
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

/// The guardian has nothing open but its end of the socket, and is in a session of its own: what
/// ends a terminal's processes does not reach it.
pid_t spawn(const std::filesystem::path& program, const std::filesystem::path& journal,
            int socket) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_setflags(&attributes, kSpawnFlags);
  std::string programText = program.native();
  std::string journalText = journal.native();
  std::array<char*, 3> arguments = {programText.data(), journalText.data(), nullptr};
  pid_t process = 0;
  const int error =
      posix_spawn(&process, programText.c_str(), &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : 0;
}

}  // namespace

std::filesystem::path guardianProgram() {
  return packageProgram("orvelle-guardian");
}

Guardian::Guardian(std::filesystem::path journal)
    : journal_(std::move(journal)), socket_(openNothing()) {}

Guardian::~Guardian() {
  close(socket_);
}

bool Guardian::attend() {
  return isRunning() || start();
}

void Guardian::dismiss(std::string_view noRecords) {
  if (isRunning()) {
    tell(noRecords);
    hangUp();
  }
}

/// It may be stopped for a while, and must never stop us. What does not arrive is in the journal.
void Guardian::tell(std::string_view records) const {
  sendRecord(socket_, records);
}

void Guardian::hangUp() {
  if (std::exchange(isConnected_, false)) {
    moveDescriptor(openNothing(), socket_);
  }
}

bool Guardian::isRunning() {
  if (process_ != 0 && waitpid(process_, nullptr, WNOHANG) != 0) {
    process_ = 0;
    hangUp();
  }
  return isConnected_;
}

/// While another client comes, PipeWire up to 0.3 tells the ones that are there of no change of the
/// default output: it must have come before we make one.
void Guardian::waitUntilReady() const {
  pollfd answer{socket_, POLLIN, 0};
  // Read, or the guardian would find an error in the place of our last record at our end.
  std::array<char, 2> ready{};
  if (poll(&answer, 1, kReadyMilliseconds) == 1) {
    [[maybe_unused]] const ssize_t size = read(socket_, ready.data(), ready.size());
  }
}

bool Guardian::start() {
  const auto sockets = openRecordSockets();
  if (!sockets) {
    return false;
  }
  process_ = spawn(guardianProgram(), journal_, sockets->second);
  close(sockets->second);
  if (process_ == 0) {
    close(sockets->first);
    return false;
  }
  moveDescriptor(sockets->first, socket_);
  isConnected_ = true;
  waitUntilReady();
  return true;
}

}  // namespace orvelle
