#include "orvelle/platform/posix/RecordSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace orvelle {

namespace {

/// Stands before and after each record: a stream knows nothing of records, and one that found room
/// for its beginning only must not run into the next.
constexpr char kBoundary = '\0';

constexpr std::size_t kReadSize = 65536;

#ifdef __APPLE__

// No sockets of records there that also tell when the other end is closed.
constexpr int kSocketKind = SOCK_STREAM;
constexpr int kSendFlags = MSG_DONTWAIT;

void configure(int socket) {
  const int yes = 1;
  setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
  fcntl(socket, F_SETFD, FD_CLOEXEC);
}

#else

constexpr int kSocketKind = SOCK_SEQPACKET | SOCK_CLOEXEC;
constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

void configure(int /*socket*/) {}

#endif

}  // namespace

std::optional<std::pair<int, int>> openRecordSockets() {
  std::array<int, 2> sockets{};
  if (socketpair(AF_UNIX, kSocketKind, 0, sockets.data()) != 0) {
    return std::nullopt;
  }
  configure(sockets[0]);
  configure(sockets[1]);
  return std::pair(sockets[0], sockets[1]);
}

void sendRecord(int socket, std::string_view record) {
  std::string bytes(1, kBoundary);
  bytes.append(record).append(1, kBoundary);
  send(socket, bytes.data(), bytes.size(), kSendFlags);
}

std::string lastRecord(int socket, const std::function<bool(std::string_view record)>& isWhole) {
  static std::array<char, kReadSize> buffer;
  std::string last;
  std::string current;
  for (;;) {
    const ssize_t size = recv(socket, buffer.data(), buffer.size(), 0);
    // What the other end has left unread is told as an error, once, and before what it has sent.
    if (size == 0 || (size < 0 && errno != EINTR && errno != ECONNRESET)) {
      return last;
    }
    for (const char byte :
         std::string_view(buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size))) {
      if (byte != kBoundary) {
        current += byte;
      } else if (!current.empty()) {
        if (isWhole(current)) {
          last.swap(current);
        }
        current.clear();
      }
    }
  }
}

void moveDescriptor(int descriptor, int number) {
#ifdef __APPLE__
  dup2(descriptor, number);
  fcntl(number, F_SETFD, FD_CLOEXEC);
#else
  dup3(descriptor, number, O_CLOEXEC);
#endif
  close(descriptor);
}

}  // namespace orvelle
