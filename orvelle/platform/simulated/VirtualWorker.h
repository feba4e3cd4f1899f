// The background queue in virtual time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "orvelle/platform/BackgroundQueue.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/simulated/ManualQueue.h"

namespace orvelle {

/// Runs jobs on a real thread, but never at the same time as the thread that winds the clock: the
/// worker runs until its job sleeps or ends, and goes on when virtual time has come that far. A
/// call that hangs is one that sleeps, and every run is the same.
class VirtualWorker final : public BackgroundQueue, public Clock {
 public:
  explicit VirtualWorker(ManualQueue& queue) : queue_(queue) {}
  VirtualWorker(const VirtualWorker&) = delete;
  VirtualWorker& operator=(const VirtualWorker&) = delete;
  /// Lets virtual time pass until the jobs have ended.
  ~VirtualWorker() override;  // NOLINT(bugprone-exception-escape): see there

  void run(Job job) override;
  bool wait(double timeoutSeconds) override;

  /// On the worker's thread: gives the turn back until the time has come. Elsewhere: the queue's.
  void sleep(double seconds) override;
  [[nodiscard]] double now() const override { return queue_.now(); }

  /// Whether a job has begun and not ended, or waits.
  [[nodiscard]] bool isBusy() const { return isBusy_; }

 private:
  enum class Turn : std::uint8_t { winder, worker };

  void resume();
  void serve();
  void giveTurn(Turn turn);

  ManualQueue& queue_;
  /// Touched by whoever has the turn.
  std::deque<Job> jobs_;
  bool isBusy_ = false;
  bool isEnding_ = false;

  std::mutex mutex_;  // guards the turn
  std::condition_variable turned_;
  Turn turn_ = Turn::winder;
  std::thread thread_;
};

}  // namespace orvelle
