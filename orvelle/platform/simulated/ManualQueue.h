// The main queue in virtual time: nothing happens until a test winds the clock on.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "orvelle/platform/Clock.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// A main queue and clock wound by hand. Jobs run on the thread that winds, in the order in which
/// they become due and, at the same instant, in the order in which they were asked for; so a run
/// is repeated exactly by asking for the same things.
///
/// Beside the jobs of the main thread there are events of the outside world. A main thread that
/// sleeps runs no job, but the world goes on around it.
class ManualQueue final : public MainQueue, public Clock {
 public:
  /// @name MainQueue
  /// @{
  void post(Job job) override;
  TimerID postAfter(double seconds, Job job) override;
  /// A timer whose turn was missed while the main thread slept runs once, then keeps its beat.
  TimerID repeat(double firstSeconds, double intervalSeconds, Job job) override;
  void cancel(TimerID timer) override;
  void onSignal(int signal, Job job) override;
  /// Leaps from one due time to the next. Throws std::logic_error where a real queue would wait for
  /// ever: nothing is due any more, or nothing has quit within a virtual day.
  int run() override;
  void quit(int status) override;
  /// @}

  /// Winds the clock on without running jobs: the caller is the main thread, and it is blocked.
  /// Events of the world take place.
  void sleep(double seconds) override;

  /// Seconds since construction. Any thread.
  [[nodiscard]] double now() const override;

  /// Lets `seconds` pass and runs what becomes due in them. Throws std::logic_error when time
  /// stands still because jobs keep posting jobs; so do the two below.
  void advance(double seconds);
  /// Runs what is due now, and what that posts.
  void runUntilIdle();
  /// Lets time pass until `condition` holds, at most `timeoutSeconds`; says whether it held.
  bool advanceUntil(const std::function<bool()>& condition, double timeoutSeconds);

  /// Something in the outside world, `seconds` from now: it takes place even while the main thread
  /// sleeps. Any thread.
  void happenAfter(double seconds, Job event);

  /// Delivers `signal` as the system would: at once, or when the main thread is free again. False:
  /// it has no job and would end the process.
  bool raise(int signal);

 private:
  using Nanoseconds = std::int64_t;
  enum class Kind : std::uint8_t { mainJob, worldEvent };

  struct Entry {
    Kind kind = Kind::mainJob;
    std::shared_ptr<const Job> job;
    TimerID timer = 0;
    Nanoseconds interval = 0;  // 0: runs once
  };
  /// Due time, then order of asking.
  using Key = std::pair<Nanoseconds, std::uint64_t>;

  static Nanoseconds nanoseconds(double seconds);
  TimerID add(Kind kind, double delaySeconds, Nanoseconds interval, Job job);
  /// Runs the earliest entry that is due by `deadline`; false when there is none.
  bool runNext(Nanoseconds deadline, bool worldOnly);
  void runDue(Nanoseconds deadline);
  [[nodiscard]] Nanoseconds currentTime() const;

  mutable std::mutex mutex_;  // guards everything up to `runningJob_`
  Nanoseconds now_ = 0;
  std::uint64_t lastSequence_ = 0;
  std::map<Key, Entry> entries_;

  // Main thread only.
  bool runningJob_ = false;
  bool isAsleep_ = false;
  std::map<int, Job> signalJobs_;
  bool quitting_ = false;
  int quitStatus_ = 0;
};

}  // namespace orvelle
