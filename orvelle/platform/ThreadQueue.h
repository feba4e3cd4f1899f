// The background queue on a thread of its own.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "orvelle/platform/BackgroundQueue.h"

namespace orvelle {

/// The thread begins with the first job and sleeps while there is none.
class ThreadQueue final : public BackgroundQueue {
 public:
  ThreadQueue() = default;
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;
  ~ThreadQueue() override;

  void run(Job job) override;
  bool wait(double timeoutSeconds) override;

 private:
  void serve();

  std::mutex mutex_;  // guards the next four
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool isWorking_ = false;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace orvelle
