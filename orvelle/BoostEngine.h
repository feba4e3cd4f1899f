// The system-wide boost: default output on the loopback, an aggregate of loopback and real output,
// one callback on it, and the way back.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/ConsoleMeter.h"
#include "orvelle/EngineError.h"
#include "orvelle/EngineHost.h"
#include "orvelle/HAL.h"
#include "orvelle/OutputLevel.h"
#include "orvelle/OwnerGate.h"

namespace orvelle {

/// While it runs, applications play into the loopback device, the real output stands at full
/// hardware volume, and the loopback's volume is the system's volume control.
///
/// Loudness is safety, and it lies in the order of steps: no real device is raised before the
/// default output is on the loopback, and the default output does not return to one before it has
/// been lowered.
///
/// The engine takes no lock. `start` may run on any thread and blocks for some 3 s at worst, or
/// half a minute more where the system asks its user for a permission; everything else belongs to
/// the main thread, and callers see to it that nothing but `isRunning` is asked while a start runs.
/// What the engine itself does on the main queue begins when the start has ended.
class BoostEngine final : public BoostRender {
 public:
  explicit BoostEngine(const EngineHost& host);
  BoostEngine(const BoostEngine&) = delete;
  BoostEngine& operator=(const BoostEngine&) = delete;
  /// Does not stop audio: call `stop` first. A callback that still comes finds nothing to call.
  ~BoostEngine();

  /// Boosts into the output `outputUID` through the loopback device `loopbackUID`. Does nothing
  /// when running. Throws EngineError and leaves undone what it did: a caller that wants the system
  /// back calls `removeDefaultGuard`, `teardownAggregate` and `stop(true)`, from the same thread if
  /// it likes. Once `givingUp` is set, from any thread, the start throws at its next step.
  void start(const std::string& loopbackUID, const std::string& outputUID,
             const std::atomic<bool>* givingUp = nullptr);

  /// Ends the boost. With `restoreDefault` the best real output becomes the default output (the
  /// one from before the start where there is no real output), if a start has taken it and no stop
  /// has put it back, or if it stands on the loopback and nobody else boosts.
  void stop(bool restoreDefault);

  /// Makes the real output run: raises it, builds the aggregate and starts the callback. Throws
  /// EngineError; trying again is then up to the caller, who calls `teardownAggregate` meanwhile.
  void buildAndStart(const std::string& outputUID);
  /// Ends the callback and the aggregate, then puts the real output's mute and volume back.
  void teardownAggregate();
  /// Puts the default output on the loopback once more if it is elsewhere.
  void reassertLoopbackDefault();
  void removeDefaultGuard();

  /// Any thread.
  [[nodiscard]] bool isRunning() const { return isRunning_; }
  /// Whether something of the system could not be put back yet; a later `stop` tries again.
  [[nodiscard]] bool hasDebts() const { return owesDefault_ || !owedLevels_.empty(); }
  /// uid of the real output that is being fed; empty when none is.
  [[nodiscard]] const std::string& currentOutputUID() const { return currentOutputUID_; }

  /// Whether `start` begins the meter line on the console.
  bool showMeter = true;
  /// Told while the engine runs, before it feeds an output anew: the last moment at which the gain
  /// can be made fit for it. Main thread.
  std::function<void(const std::string& outputUID)> onOutputWillChange;
  /// Told when the engine has followed the user to another output. Main thread.
  std::function<void(const AudioDeviceInfo&)> onOutputChanged;

 private:
  void bringUp(const std::string& loopbackUID, const std::string& outputUID);
  void rememberDefaultOutput();
  bool putDefaultOn(AudioObjectID loopback, double waitSeconds);
  void throwIfGivenUp() const;
  void awaitPermission() const;
  [[nodiscard]] CapturePermission awaitAnswer() const;
  void handLevelToLoopback(AudioObjectID loopback, OutputLevel level, const std::string& outputUID);
  [[nodiscard]] OutputLevel levelForNewLoopback(const AudioDeviceInfo& output) const;
  [[nodiscard]] bool isDefaultOnLoopback() const;
  [[nodiscard]] bool mayRestoreDefault() const;
  void restoreDefaultOutput();

  MainQueue::Job whileAlive(void (BoostEngine::*job)());
  void startMeter();
  void installDefaultGuard();
  void defaultOutputChanged();
  void follow(const AudioDeviceInfo& output);
  void deviceListChanged();
  void resume();
  void raiseAgain();
  void rebuild(const std::string& outputUID);

  void raiseOutput(AudioObjectID output, const std::string& outputUID);
  void raiseIfGoverned();
  [[nodiscard]] OutputLevel formerLevel(AudioObjectID output, const std::string& outputUID) const;
  bool handMuteToLoopback(const std::string& outputUID);
  void lowerOutput();
  void settleOwedLevels();
  void tellDebts() const;

  AudioObjectID makeAggregate(const std::string& loopbackUID, const std::string& outputUID);
  void startIOProc();

  EngineHost host_;
  HAL hal_;
  ConsoleMeter meter_;

  AudioObjectID aggregateID_ = kAudioObjectUnknown;
  AudioDeviceIOProcID procID_ = 0;
  AudioObjectID previousDefaultOutput_ = kAudioObjectUnknown;
  std::string previousDefaultUID_;
  /// Whether the default output is still to be put back. A start that failed before it changed
  /// anything leaves nothing to restore.
  bool owesDefault_ = false;
  std::string loopbackUID_;
  AudioObjectID loopbackID_ = kAudioObjectUnknown;
  std::string currentOutputUID_;
  /// The output that was last fed, or that the user chose: it is taken again when it returns.
  std::string wantedOutputUID_;
  /// Becomes true with the last step of a start: until then the main queue leaves the engine alone.
  std::atomic<bool> isRunning_{false};
  /// While a start runs, and only if its caller may change its mind.
  const std::atomic<bool>* givingUp_ = nullptr;

  AudioObjectID boostedOutputID_ = kAudioObjectUnknown;
  std::string boostedOutputUID_;
  OutputLevel boostedOutputPrevLevel_;
  /// By uid: the levels of raised outputs that were gone when they should have been put back.
  std::map<std::string, OutputLevel> owedLevels_;
  /// By uid: what outputs stood at before they were raised, since the start.
  std::map<std::string, OutputLevel> formerLevels_;
  /// uids of the outputs whose mute the loopback has taken over since the start.
  std::set<std::string> handedMutes_;
  /// Whether the loopback has taken over the volume. Without that no output is raised: nothing
  /// would govern its loudness.
  bool loopbackGovernsVolume_ = false;
  OutputLevel levelForLoopback_;  ///< as it was last handed over

  /// As the device guard last found them.
  std::vector<AudioObjectID> knownDevices_;

  ListenerToken defaultGuard_ = 0;
  ListenerToken deviceGuard_ = 0;

  /// What callbacks hold instead of the engine: the gate those of the real-time thread, the life
  /// token those of the main queue.
  std::shared_ptr<OwnerGate> gate_ = std::make_shared<OwnerGate>();
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle
