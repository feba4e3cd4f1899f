#include "orvelle/platform/linux/Guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "orvelle/platform/Process.h"

namespace orvelle {

namespace {

/// Some fifty times what it takes.
constexpr int kReadyMilliseconds = 500;

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
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
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
  send(socket_, records.data(), records.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Guardian::hangUp() {
  if (std::exchange(isConnected_, false)) {
    putBehindSocket(openNothing());
  }
}

void Guardian::putBehindSocket(int descriptor) const {
  dup3(descriptor, socket_, O_CLOEXEC);
  close(descriptor);
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
  char ready = 0;
  if (poll(&answer, 1, kReadyMilliseconds) == 1) {
    recv(socket_, &ready, sizeof ready, MSG_DONTWAIT);
  }
}

bool Guardian::start() {
  std::array<int, 2> sockets{};
  // Records arrive whole, one after the other.
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
    return false;
  }
  process_ = spawn(guardianProgram(), journal_, sockets[1]);
  close(sockets[1]);
  if (process_ == 0) {
    close(sockets[0]);
    return false;
  }
  putBehindSocket(sockets[0]);
  isConnected_ = true;
  waitUntilReady();
  return true;
}

}  // namespace orvelle
