#include "orvelle/platform/qt/QtMainQueue.h"

#include <QCoreApplication>
#include <algorithm>
#include <utility>

namespace orvelle {

namespace {

using SteadyClock = std::chrono::steady_clock;

SteadyClock::duration toDuration(double seconds) {
  return std::chrono::duration_cast<SteadyClock::duration>(
      std::chrono::duration<double>(std::max(seconds, 0.0)));
}

}  // namespace

QtMainQueue::QtMainQueue() {
  wakeTimer_.setSingleShot(true);
  wakeTimer_.setTimerType(Qt::PreciseTimer);
  QObject::connect(&wakeTimer_, &QTimer::timeout, &receiver_, [this] { serveDueJobs(); });
}

void QtMainQueue::post(Job job) {
  schedule(SteadyClock::now(), {}, std::move(job));
}

TimerID QtMainQueue::postAfter(double seconds, Job job) {
  return schedule(SteadyClock::now() + toDuration(seconds), {}, std::move(job));
}

TimerID QtMainQueue::repeat(double firstSeconds, double intervalSeconds, Job job) {
  return schedule(SteadyClock::now() + toDuration(firstSeconds), toDuration(intervalSeconds),
                  std::move(job));
}

TimerID QtMainQueue::schedule(SteadyClock::time_point due, SteadyClock::duration interval,
                              Job job) {
  const std::lock_guard lock(mutex_);
  const TimerID timer = ++lastTimer_;
  waiting_.emplace(due, Entry{timer, interval, std::move(job)});
  wakeSoon();
  return timer;
}

/// Any thread, with the mutex held. Timers of Qt belong to the main thread, so another thread can
/// only ask the main thread to look.
void QtMainQueue::wakeSoon() {
  if (!wakePending_) {
    wakePending_ = true;
    QMetaObject::invokeMethod(
        &receiver_, [this] { serveDueJobs(); }, Qt::QueuedConnection);
  }
}

void QtMainQueue::cancel(TimerID timer) {
  if (timer == 0) {
    return;
  }
  if (timer == runningTimer_) {
    runningTimer_ = 0;  // in hand now, so it is not among the waiting
    return;
  }
  Schedule::node_type removed;  // dies after the lock: a job's destructor may post
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                  [timer](const auto& item) { return item.second.timer == timer; });
  if (found != waiting_.end()) {
    removed = waiting_.extract(found);
  }
}

void QtMainQueue::onSignal(int signal, Job job) {
  signalJobs_[signal] = std::move(job);
  if (!signals_) {
    signals_.emplace([this](int received) { post(signalJobs_[received]); });
  }
  signals_->catchSignal(signal);
}

int QtMainQueue::run() {
  if (!quitStatus_) {
    const int status = QCoreApplication::exec();
    return quitStatus_.value_or(status);
  }
  return *quitStatus_;
}

void QtMainQueue::quit(int status) {
  if (!quitStatus_) {
    quitStatus_ = status;
    QCoreApplication::exit(status);
  }
}

void QtMainQueue::serveDueJobs() {
  if (isServing_) {
    return;  // a job that runs an event loop of its own must not nest others into itself
  }
  isServing_ = true;
  // What becomes due meanwhile waits for the next round, so that events of Qt and signals get
  // their turn even when jobs keep posting jobs.
  const SteadyClock::time_point now = SteadyClock::now();
  while (!quitStatus_) {
    std::unique_lock lock(mutex_);
    wakePending_ = false;
    if (waiting_.empty() || waiting_.begin()->first > now) {
      break;
    }
    auto next = waiting_.extract(waiting_.begin());
    lock.unlock();
    runJob(std::move(next));
  }
  isServing_ = false;
  armWakeTimer();
}

/// A job that repeats goes back into the schedule as it is: a tick allocates nothing.
void QtMainQueue::runJob(Schedule::node_type next) {
  const Entry& entry = next.mapped();
  runningTimer_ = entry.timer;
  entry.job();
  const bool wasCancelled = runningTimer_ == 0;
  runningTimer_ = 0;
  if (entry.interval == SteadyClock::duration::zero() || wasCancelled) {
    return;
  }
  const SteadyClock::duration late = SteadyClock::now() - next.key();
  const auto missedTurns = std::max<SteadyClock::rep>(late / entry.interval, 0);
  next.key() += (missedTurns + 1) * entry.interval;
  const std::lock_guard lock(mutex_);
  waiting_.insert(std::move(next));
}

void QtMainQueue::armWakeTimer() {
  constexpr std::chrono::milliseconds longestWait = std::chrono::hours(1);
  const std::lock_guard lock(mutex_);
  if (quitStatus_ || waiting_.empty()) {
    wakeTimer_.stop();
    return;
  }
  const auto wait =
      std::chrono::ceil<std::chrono::milliseconds>(waiting_.begin()->first - SteadyClock::now());
  wakeTimer_.start(std::clamp(wait, std::chrono::milliseconds::zero(), longestWait));
}

}  // namespace orvelle
