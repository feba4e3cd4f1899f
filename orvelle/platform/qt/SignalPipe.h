// Unix signals as ordinary events of the main loop.
#pragma once

#include <csignal>
#include <functional>
#include <map>
#include <memory>

class QSocketNotifier;

namespace orvelle {

/// The self-pipe: a signal handler may do next to nothing, but it may write one byte, which the
/// main loop then reads at leisure. At most one object at a time, on the main thread.
class SignalPipe {
 public:
  /// `onSignal` is called on the main thread with the number of each signal that came.
  explicit SignalPipe(std::function<void(int signal)> onSignal);
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;
  /// Gives every caught signal its former action back.
  ~SignalPipe();

  /// From now on `signal` no longer has its former action.
  void catchSignal(int signal);

 private:
  void readSignals();

  std::function<void(int signal)> onSignal_;
  std::map<int, struct sigaction> formerActions_;
  int readEnd_ = -1;
  int writeEnd_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace orvelle
