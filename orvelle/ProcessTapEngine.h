// One application's own volume: a tap on its process, an aggregate of the tap and a real output,
// and one callback that plays the one into the other.
#pragma once

#include <memory>
#include <string>

#include "orvelle/ConsoleMeter.h"
#include "orvelle/EngineError.h"
#include "orvelle/EngineHost.h"
#include "orvelle/HAL.h"
#include "orvelle/OwnerGate.h"
#include "orvelle/TapRender.h"

namespace orvelle {

/// While it runs, the application is silent on its normal path and heard through this engine alone,
/// at `volume`. Main thread, but for `render`.
class ProcessTapEngine final : public TapRender {
 public:
  explicit ProcessTapEngine(const EngineHost& host);
  ProcessTapEngine(const ProcessTapEngine&) = delete;
  ProcessTapEngine& operator=(const ProcessTapEngine&) = delete;
  /// Does not end the tap: call `stop` first, or the application stays silent. A callback that
  /// still comes finds nothing to call.
  ~ProcessTapEngine();

  /// Taps the audio process object `processObjectID` and plays it into the output `outputUID`.
  /// Does nothing when running. Throws EngineError and leaves undone what it did; the next start
  /// takes that apart first. An empty uid is that of no device.
  void start(AudioObjectID processObjectID, const std::string& outputUID);

  /// Gives the application back to its normal path. Does nothing when not running.
  void stop();

  /// Takes apart callback, aggregate and tap, as far as they are there: what a caller does after a
  /// failed start that it does not repeat.
  void teardown();

  [[nodiscard]] bool isRunning() const { return isRunning_; }

  /// Whether `start` begins the meter line on the console.
  bool showMeter = true;

 private:
  void makeTap(AudioObjectID processObjectID);
  void makeAggregate(const std::string& outputUID);
  void makeIOProc();
  void printTapFormat();

  EngineHost host_;
  HAL hal_;
  ConsoleMeter meter_;

  AudioObjectID tapID_ = kAudioObjectUnknown;
  std::string tapUUID_;
  AudioObjectID aggregateID_ = kAudioObjectUnknown;
  AudioDeviceIOProcID procID_ = 0;
  bool isRunning_ = false;

  /// What the callback holds instead of the engine.
  std::shared_ptr<OwnerGate> gate_ = std::make_shared<OwnerGate>();
};

}  // namespace orvelle
