#include "orvelle/platform/simulated/ManualQueue.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace orvelle {

namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kLongestRunSeconds = 24.0 * 3600.0;
constexpr int kMostJobsInInstant = 10000;

}  // namespace

void ManualQueue::post(Job job) {
  add(Kind::mainJob, 0.0, 0, std::move(job));
}

TimerID ManualQueue::postAfter(double seconds, Job job) {
  return add(Kind::mainJob, seconds, 0, std::move(job));
}

TimerID ManualQueue::repeat(double firstSeconds, double intervalSeconds, Job job) {
  const Nanoseconds interval = std::max<Nanoseconds>(1, nanoseconds(intervalSeconds));
  return add(Kind::mainJob, firstSeconds, interval, std::move(job));
}

void ManualQueue::happenAfter(double seconds, Job event) {
  add(Kind::worldEvent, seconds, 0, std::move(event));
}

void ManualQueue::cancel(TimerID timer) {
  const std::lock_guard lock(mutex_);
  std::erase_if(entries_,
                [timer](const auto& keyed) { return timer != 0 && keyed.second.timer == timer; });
}

void ManualQueue::onSignal(int signal, Job job) {
  signalJobs_[signal] = std::move(job);
}

bool ManualQueue::raise(int signal) {
  const auto found = signalJobs_.find(signal);
  if (found == signalJobs_.end()) {
    return false;
  }
  post(found->second);
  if (!runningJob_ && !isAsleep_) {
    runUntilIdle();
  }
  return true;
}

int ManualQueue::run() {
  quitting_ = false;
  const Nanoseconds deadline = currentTime() + nanoseconds(kLongestRunSeconds);
  while (!quitting_) {
    if (!runNext(deadline, false)) {
      throw std::logic_error("ManualQueue::run: nobody will ever call quit");
    }
  }
  return quitStatus_;
}

void ManualQueue::quit(int status) {
  quitting_ = true;
  quitStatus_ = status;
}

void ManualQueue::sleep(double seconds) {
  const Nanoseconds deadline = currentTime() + nanoseconds(seconds);
  isAsleep_ = true;
  while (runNext(deadline, true)) {
  }
  isAsleep_ = false;
  const std::lock_guard lock(mutex_);
  now_ = std::max(now_, deadline);
}

double ManualQueue::now() const {
  return static_cast<double>(currentTime()) / kNanosecondsPerSecond;
}

void ManualQueue::advance(double seconds) {
  runDue(currentTime() + nanoseconds(seconds));
}

void ManualQueue::runUntilIdle() {
  runDue(currentTime());
}

bool ManualQueue::advanceUntil(const std::function<bool()>& condition, double timeoutSeconds) {
  constexpr double stepSeconds = 0.01;
  const Nanoseconds deadline = currentTime() + nanoseconds(timeoutSeconds);
  runUntilIdle();
  while (!condition()) {
    if (currentTime() >= deadline) {
      return false;
    }
    advance(stepSeconds);
  }
  return true;
}

ManualQueue::Nanoseconds ManualQueue::nanoseconds(double seconds) {
  return std::llround(seconds * kNanosecondsPerSecond);
}

TimerID ManualQueue::add(Kind kind, double delaySeconds, Nanoseconds interval, Job job) {
  const std::lock_guard lock(mutex_);
  const std::uint64_t sequence = ++lastSequence_;
  const Nanoseconds due = now_ + std::max<Nanoseconds>(0, nanoseconds(delaySeconds));
  entries_.emplace(Key{due, sequence},
                   Entry{kind, std::make_shared<const Job>(std::move(job)), sequence, interval});
  return sequence;
}

bool ManualQueue::runNext(Nanoseconds deadline, bool worldOnly) {
  Entry entry;
  {
    const std::lock_guard lock(mutex_);
    const auto next = std::find_if(entries_.begin(), entries_.end(), [&](const auto& keyed) {
      return !worldOnly || keyed.second.kind == Kind::worldEvent;
    });
    if (next == entries_.end() || next->first.first > deadline) {
      return false;
    }
    const Nanoseconds due = next->first.first;
    now_ = std::max(now_, due);
    entry = next->second;
    entries_.erase(next);
    if (entry.interval > 0) {
      // Armed again before it runs, so that its job can cancel it.
      const Nanoseconds missed = (now_ - due) / entry.interval;
      entries_.emplace(Key{due + (missed + 1) * entry.interval, ++lastSequence_}, entry);
    }
  }
  if (entry.kind == Kind::worldEvent) {
    (*entry.job)();
    return true;
  }
  if (runningJob_) {
    throw std::logic_error("ManualQueue: a job must not serve the queue that runs it");
  }
  runningJob_ = true;
  (*entry.job)();
  runningJob_ = false;
  return true;
}

void ManualQueue::runDue(Nanoseconds deadline) {
  Nanoseconds instant = currentTime();
  for (int jobsInInstant = 0; runNext(deadline, false); ++jobsInInstant) {
    if (std::exchange(instant, currentTime()) != instant) {
      jobsInInstant = 0;
    } else if (jobsInInstant > kMostJobsInInstant) {
      throw std::logic_error("ManualQueue: jobs post each other for ever");
    }
  }
  const std::lock_guard lock(mutex_);
  now_ = std::max(now_, deadline);
}

ManualQueue::Nanoseconds ManualQueue::currentTime() const {
  const std::lock_guard lock(mutex_);
  return now_;
}

}  // namespace orvelle
