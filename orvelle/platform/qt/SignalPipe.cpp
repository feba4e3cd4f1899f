#include "orvelle/platform/qt/SignalPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <array>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

namespace orvelle {

namespace {

/// The one thing that a signal handler can reach.
std::atomic<int> handlerWriteEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void writeSignalNumber(int signal) {
  const int savedErrno = errno;  // belongs to the code that was interrupted
  const auto number = static_cast<unsigned char>(signal);
  // A full pipe loses the byte; thousands of signals are waiting in it then.
  [[maybe_unused]] const ssize_t written = write(handlerWriteEnd.load(), &number, 1);
  errno = savedErrno;
}

void configure(int descriptor) {
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

}  // namespace

SignalPipe::SignalPipe(std::function<void(int signal)> onSignal) : onSignal_(std::move(onSignal)) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe for signals");
  }
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
  configure(readEnd_);
  configure(writeEnd_);
  notifier_ = std::make_unique<QSocketNotifier>(readEnd_, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                   [this] { readSignals(); });
  handlerWriteEnd = writeEnd_;
}

SignalPipe::~SignalPipe() {
  for (const auto& [signal, formerAction] : formerActions_) {
    sigaction(signal, &formerAction, nullptr);
  }
  handlerWriteEnd = -1;
  notifier_.reset();
  close(readEnd_);
  close(writeEnd_);
}

void SignalPipe::catchSignal(int signal) {
  if (formerActions_.contains(signal)) {
    return;
  }
  struct sigaction action {};
  action.sa_handler = writeSignalNumber;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  struct sigaction formerAction {};
  if (sigaction(signal, &action, &formerAction) != 0) {
    throw std::system_error(errno, std::generic_category(), "sigaction");
  }
  formerActions_.emplace(signal, formerAction);
}

void SignalPipe::readSignals() {
  std::array<unsigned char, 64> numbers{};
  ssize_t count = 0;
  while ((count = read(readEnd_, numbers.data(), numbers.size())) > 0) {
    for (ssize_t i = 0; i < count; ++i) {
      onSignal_(numbers.at(static_cast<std::size_t>(i)));
    }
  }
}

}  // namespace orvelle
