// The main queue on Qt's event loop.
#pragma once

#include <QObject>
#include <QTimer>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>

#include "orvelle/platform/MainQueue.h"
#include "orvelle/platform/qt/SignalPipe.h"

namespace orvelle {

/// Jobs wait in one schedule, ordered by the moment at which they become due; Qt only wakes it.
/// Needs a QCoreApplication, and is made and destroyed on its thread. Only one at a time.
///
/// Timers are exact to some milliseconds. A repeating job that was held up runs once and then
/// falls back into its old rhythm. `quit` holds for good: a later `run` returns at once.
class QtMainQueue final : public MainQueue {
 public:
  QtMainQueue();

  void post(Job job) override;
  TimerID postAfter(double seconds, Job job) override;
  TimerID repeat(double firstSeconds, double intervalSeconds, Job job) override;
  void cancel(TimerID timer) override;
  void onSignal(int signal, Job job) override;
  int run() override;
  void quit(int status) override;

 private:
  using SteadyClock = std::chrono::steady_clock;

  struct Entry {
    TimerID timer = 0;
    SteadyClock::duration interval{};  // 0: runs once
    Job job;
  };

  /// Equal moments keep the order in which they were scheduled.
  using Schedule = std::multimap<SteadyClock::time_point, Entry>;

  TimerID schedule(SteadyClock::time_point due, SteadyClock::duration interval, Job job);
  void wakeSoon();
  void serveDueJobs();
  void runJob(Schedule::node_type next);
  void armWakeTimer();

  std::mutex mutex_;  // guards the three below
  Schedule waiting_;
  TimerID lastTimer_ = 0;
  bool wakePending_ = false;

  // Main thread only.
  QObject receiver_;
  QTimer wakeTimer_;
  std::map<int, Job> signalJobs_;
  std::optional<SignalPipe> signals_;
  TimerID runningTimer_ = 0;
  bool isServing_ = false;
  std::optional<int> quitStatus_;
};

}  // namespace orvelle
