#include "orvelle/platform/simulated/VirtualWorker.h"

#include <utility>

namespace orvelle {

namespace {

constexpr double kWaitStepSeconds = 0.01;

}  // namespace

// A job of the queue that throws in here ends the test program, which is right.
// NOLINTNEXTLINE(bugprone-exception-escape)
VirtualWorker::~VirtualWorker() {
  while (isBusy_) {
    queue_.sleep(kWaitStepSeconds);
  }
  if (thread_.joinable()) {
    isEnding_ = true;
    resume();
    thread_.join();
  }
}

void VirtualWorker::run(Job job) {
  jobs_.push_back(std::move(job));
  if (!thread_.joinable()) {
    thread_ = std::thread([this] { serve(); });
  }
  if (!std::exchange(isBusy_, true)) {
    queue_.happenAfter(0.0, [this] { resume(); });
  }
}

bool VirtualWorker::wait(double timeoutSeconds) {
  const double deadline = queue_.now() + timeoutSeconds;
  while (isBusy_ && queue_.now() < deadline) {
    queue_.sleep(kWaitStepSeconds);
  }
  return !isBusy_;
}

void VirtualWorker::sleep(double seconds) {
  if (std::this_thread::get_id() != thread_.get_id()) {
    queue_.sleep(seconds);
    return;
  }
  queue_.happenAfter(seconds, [this] { resume(); });
  giveTurn(Turn::winder);
}

void VirtualWorker::resume() {
  giveTurn(Turn::worker);
}

/// Worker's thread.
void VirtualWorker::serve() {
  {
    std::unique_lock lock(mutex_);
    turned_.wait(lock, [this] { return turn_ == Turn::worker; });
  }
  while (!isEnding_) {
    while (!jobs_.empty()) {
      const Job job = std::move(jobs_.front());
      jobs_.pop_front();
      job();
    }
    isBusy_ = false;
    giveTurn(Turn::winder);
  }
  const std::lock_guard lock(mutex_);
  turn_ = Turn::winder;
  turned_.notify_all();
}

/// Lets the other side go on, until it gives the turn back.
void VirtualWorker::giveTurn(Turn turn) {
  std::unique_lock lock(mutex_);
  const Turn own = turn_;
  turn_ = turn;
  turned_.notify_all();
  turned_.wait(lock, [this, own] { return turn_ == own; });
}

}  // namespace orvelle
