// Work that may block, away from the main thread.
#pragma once

#include <functional>

namespace orvelle {

/// Jobs for one thread beside the main thread, where a user waits for the result. They run one
/// after the other in the order in which they were asked for.
class BackgroundQueue {
 public:
  using Job = std::function<void()>;

  BackgroundQueue() = default;
  BackgroundQueue(const BackgroundQueue&) = delete;
  BackgroundQueue& operator=(const BackgroundQueue&) = delete;
  /// Waits for the jobs, however long they take.
  virtual ~BackgroundQueue() = default;

  /// Main thread.
  virtual void run(Job job) = 0;
  /// Blocks the main thread until all jobs have ended, for `timeoutSeconds` at most; says whether
  /// they have.
  virtual bool wait(double timeoutSeconds) = 0;
};

}  // namespace orvelle
