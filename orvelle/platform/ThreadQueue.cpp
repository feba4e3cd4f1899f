#include "orvelle/platform/ThreadQueue.h"

#include <chrono>
#include <utility>

namespace orvelle {

ThreadQueue::~ThreadQueue() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) {
    thread_.join();
  }
}

void ThreadQueue::run(Job job) {
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  if (!thread_.joinable()) {
    thread_ = std::thread([this] { serve(); });
  }
  changed_.notify_all();
}

bool ThreadQueue::wait(double timeoutSeconds) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                           [this] { return jobs_.empty() && !isWorking_; });
}

void ThreadQueue::serve() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return isEnding_ || !jobs_.empty(); });
    if (jobs_.empty()) {
      return;
    }
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    isWorking_ = true;
    lock.unlock();
    job();
    job = nullptr;  // what it holds ends before anybody hears that it has ended
    lock.lock();
    isWorking_ = false;
    changed_.notify_all();
  }
}

}  // namespace orvelle
