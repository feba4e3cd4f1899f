// Starts the boost away from the main thread: an audio system that hangs must not take the panel
// with it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "orvelle/BoostEngine.h"
#include "orvelle/platform/BackgroundQueue.h"

namespace orvelle {

/// How a start has ended: the boost plays into `output`, or `problem` says why not.
struct StartOutcome {
  std::optional<AudioDeviceInfo> output;
  /// Empty where there was no output to play into.
  std::string problem;
};

/// Keeps starts and stops of one engine apart: at any time either one start runs in the background
/// or the main thread has the engine. What has to wait waits here, the newest start only. Main
/// thread.
class BoostStarter {
 public:
  using Report = std::function<void(const StartOutcome&)>;

  /// Everything named here outlives the starter.
  BoostStarter(const EngineHost& host, BackgroundQueue& background, BoostEngine& engine);
  BoostStarter(const BoostStarter&) = delete;
  BoostStarter& operator=(const BoostStarter&) = delete;
  /// Waits for a start that runs.
  ~BoostStarter();

  /// Starts the boost through `loopbackUID` into the preferred output and reports on the main
  /// queue. A start that failed has put the system right before it reports. While an earlier start
  /// runs the new one waits for it; one that waits already is dropped without a report.
  void start(const std::string& loopbackUID, Report report);

  /// Stops the engine as `BoostEngine::stop` does. A start that runs gives up at its next step, and
  /// the engine is stopped when it has ended; `onLateStop` is told then.
  void stop(bool restoreDefault);
  std::function<void()> onLateStop;

  /// Whether a start runs, so that the engine belongs to the background.
  [[nodiscard]] bool isBusy() const { return givingUp_ != nullptr; }

  /// Has a start that runs give up, and blocks until it has; afterwards the engine belongs to the
  /// caller for good. False when that took longer than `timeoutSeconds`: the engine is then stopped
  /// when the start comes back, if the main queue still runs.
  bool settle(double timeoutSeconds);

 private:
  struct WaitingStart {
    std::string loopbackUID;
    Report report;
  };

  void launch(const std::string& loopbackUID, Report report);
  StartOutcome attempt(const std::string& loopbackUID, const std::atomic<bool>& givingUp);
  void ended(const Report& report, const StartOutcome& outcome);

  EngineHost host_;
  BackgroundQueue& background_;
  BoostEngine& engine_;
  /// Of the start that runs; null when none does.
  std::shared_ptr<std::atomic<bool>> givingUp_;
  std::optional<WaitingStart> waiting_;
  /// The argument of a stop that waits.
  std::optional<bool> wantsStop_;
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle
