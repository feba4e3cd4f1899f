// The main thread's queue: the only way work reaches the main thread, and the only source of timers
// and signals. One filling waits on the real clock, one is wound by hand in tests.
#pragma once

#include <cstdint>
#include <functional>

namespace orvelle {

/// Names one delayed or repeating job. 0 means none.
using TimerID = std::uint64_t;

/// Jobs for the main thread. `post` may be called from any thread but the real-time one, everything
/// else on the main thread only. Jobs run in the order in which they become due, never nested.
class MainQueue {
 public:
  using Job = std::function<void()>;

  MainQueue() = default;
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;
  virtual ~MainQueue() = default;

  virtual void post(Job job) = 0;
  /// Runs `job` once, `seconds` from now.
  virtual TimerID postAfter(double seconds, Job job) = 0;
  /// Runs `job` first after `firstSeconds`, then every `intervalSeconds`, without leeway.
  virtual TimerID repeat(double firstSeconds, double intervalSeconds, Job job) = 0;
  /// Afterwards the timer's job does not run; 0 and finished timers are ignored.
  virtual void cancel(TimerID timer) = 0;

  /// From now on `signal` no longer has its default action; `job` runs on the main thread instead.
  virtual void onSignal(int signal, Job job) = 0;

  /// Serves the queue until `quit`, whose status it returns.
  virtual int run() = 0;
  /// Ends `run` after the job in hand. Jobs that are still waiting do not run.
  virtual void quit(int status) = 0;
};

}  // namespace orvelle
