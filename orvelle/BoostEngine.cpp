#include "orvelle/BoostEngine.h"

#include <algorithm>
#include <array>
#include <utility>

#include "orvelle/OutputRanking.h"
#include "orvelle/platform/Process.h"

namespace orvelle {

namespace {

constexpr int kDefaultOutputAttempts = 20;
constexpr double kDefaultOutputWaitSeconds = 0.1;
/// While following, music plays on the direct path until the default output is back: hurry.
constexpr double kFollowWaitSeconds = 0.01;
constexpr int kDeviceStartAttempts = 11;
constexpr double kDeviceStartWaitSeconds = 0.1;
constexpr int kRestoreAttempts = 3;
/// A session manager that has just begun takes some hundred milliseconds to give devices their
/// stored volumes, and seconds on a busy machine.
constexpr std::array kRaiseAgainSeconds = {0.1, 0.2, 0.4, 0.7, 1.0, 2.0, 3.0};

}  // namespace

BoostEngine::BoostEngine(const EngineHost& host)
    : host_(host), hal_(host.hardware), meter_(host.queue, host.console, *this) {}

BoostEngine::~BoostEngine() {
  removeDefaultGuard();
  gate_->closeAndWait();
}

void BoostEngine::start(const std::string& loopbackUID, const std::string& outputUID,
                        const std::atomic<bool>* givingUp) {
  if (isRunning_) {
    return;
  }
  givingUp_ = givingUp;
  try {
    bringUp(loopbackUID, outputUID);
  } catch (const EngineError&) {
    givingUp_ = nullptr;
    throw;
  }
  givingUp_ = nullptr;
  isRunning_ = true;
  if (showMeter) {
    host_.queue.post(whileAlive(&BoostEngine::startMeter));
  }
  // News that came while the start had the engine have been passed over.
  host_.queue.post(whileAlive(&BoostEngine::deviceListChanged));
  host_.queue.post(whileAlive(&BoostEngine::defaultOutputChanged));
}

void BoostEngine::bringUp(const std::string& loopbackUID, const std::string& outputUID) {
  handedMutes_.clear();
  formerLevels_.clear();
  loopbackUID_ = loopbackUID;
  const auto loopback = hal_.device(loopbackUID);
  if (!loopback) {
    throw EngineError::deviceNotFound(loopbackUID);
  }
  throwIfGivenUp();
  loopbackID_ = loopback->id;
  const OutputLevel previousLevel = outputLevel(hal_, hal_.defaultOutput());
  rememberDefaultOutput();
  if (!putDefaultOn(loopback->id, kDefaultOutputWaitSeconds)) {
    throw EngineError::osStatus("SetDefaultOutput (loopback never took)", -1);
  }
  handLevelToLoopback(loopback->id, previousLevel, outputUID);
  knownDevices_ = hal_.foreignDeviceIDs();
  installDefaultGuard();
  buildAndStart(outputUID);
}

/// After a stop that did not put it back, what the loopback has displaced is known already.
void BoostEngine::rememberDefaultOutput() {
  const AudioObjectID defaultOutput = hal_.defaultOutput();
  if (!owesDefault_ || defaultOutput != loopbackID_) {
    previousDefaultOutput_ = defaultOutput;
    previousDefaultUID_ = hal_.string(defaultOutput, kAudioDevicePropertyDeviceUID);
  }
  owesDefault_ = true;
  tellDebts();
}

void BoostEngine::throwIfGivenUp() const {
  if (givingUp_ != nullptr && *givingUp_) {
    throw EngineError::givenUp();
  }
}

void BoostEngine::startMeter() {
  if (isRunning_) {
    meter_.start();
  }
}

void BoostEngine::stop(bool restoreDefault) {
  if (isRunning_) {
    isRunning_ = false;
    removeDefaultGuard();
    meter_.stop();
    teardownAggregate();
  }
  settleOwedLevels();
  if (restoreDefault && mayRestoreDefault()) {
    restoreDefaultOutput();
  }
}

bool BoostEngine::mayRestoreDefault() const {
  if (owesDefault_) {
    return true;
  }
  const bool isLeftBehind = !loopbackUID_.empty() && isDefaultOnLoopback();
  return isLeftBehind && !host_.undoKeeper.boostingProcess();
}

bool BoostEngine::isDefaultOnLoopback() const {
  return hal_.string(hal_.defaultOutput(), kAudioDevicePropertyDeviceUID) == loopbackUID_;
}

void BoostEngine::restoreDefaultOutput() {
  std::vector<AudioDeviceInfo> outputs = hal_.realOutputs();
  const bool hasOutputs = !outputs.empty();
  // One that would not be lowered stands at full volume: rather another one, or silence.
  std::erase_if(outputs, [this](const auto& real) { return owedLevels_.contains(real.uid); });
  const auto best = bestOutput(outputs);
  const AudioObjectID former = hasOutputs ? kAudioObjectUnknown : previousDefaultOutput_;
  const AudioObjectID output = best ? best->id : former;
  if (output == kAudioObjectUnknown) {
    return;
  }
  for (int attempt = 0; attempt < kRestoreAttempts; ++attempt) {
    if (hal_.setDefaultOutput(output) == kAudioHardwareNoError) {
      owesDefault_ = false;
      tellDebts();
      return;
    }
  }
}

/// What is to be put back if we cannot: told before it is run up, and when it has been paid.
void BoostEngine::tellDebts() const {
  UndoRecord debts;
  if (owesDefault_) {
    debts.defaultOutput = {previousDefaultUID_, loopbackUID_};
  }
  debts.raisedOutputs = owedLevels_;
  if (boostedOutputID_ != kAudioObjectUnknown) {
    debts.raisedOutputs[boostedOutputUID_] = boostedOutputPrevLevel_;
  }
  host_.undoKeeper.keep("boost", debts);
}

// Default output and its volume

bool BoostEngine::putDefaultOn(AudioObjectID loopback, double waitSeconds) {
  for (int attempt = 0; attempt < kDefaultOutputAttempts; ++attempt) {
    if (hal_.defaultOutput() == loopback) {
      return true;
    }
    throwIfGivenUp();
    hal_.setDefaultOutput(loopback);
    host_.clock.sleep(waitSeconds);
  }
  return hal_.defaultOutput() == loopback;
}

void BoostEngine::handLevelToLoopback(AudioObjectID loopback, OutputLevel level,
                                      const std::string& outputUID) {
  if (!level.volume) {
    // The former default has no volume control. What bounds the loudness is then the control of
    // the output that is about to be raised.
    if (const auto output = hal_.device(outputUID)) {
      level.volume = outputLevel(hal_, output->id).volume;
    }
  }
  // A loopback may remember a mute from an earlier life; nobody would find out why it is silent.
  level.mute = level.mute.value_or(false);
  levelForLoopback_ = level;
  loopbackGovernsVolume_ = setOutputLevel(hal_, loopback, level) && level.volume.has_value();
}

/// What the user has set it to, where the one before it still tells; else what the user knows of
/// the output.
OutputLevel BoostEngine::levelForNewLoopback(const AudioDeviceInfo& output) const {
  const OutputLevel former =
      loopbackGovernsVolume_ ? outputLevel(hal_, loopbackID_) : OutputLevel{};
  if (former.volume) {
    return former;
  }
  return formerLevel(output.id, output.uid);
}

void BoostEngine::reassertLoopbackDefault() {
  const auto loopback = hal_.device(loopbackUID_);
  if (loopback && hal_.defaultOutput() != loopback->id) {
    hal_.setDefaultOutput(loopback->id);
  }
}

// Guard

void BoostEngine::installDefaultGuard() {
  host_.hardware.addPropertyListener(kAudioObjectSystemObject,
                                     {kAudioHardwarePropertyDefaultOutputDevice},
                                     whileAlive(&BoostEngine::defaultOutputChanged), defaultGuard_);
  host_.hardware.addPropertyListener(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices},
                                     whileAlive(&BoostEngine::deviceListChanged), deviceGuard_);
}

/// A job of the main queue that does nothing once the engine is gone.
MainQueue::Job BoostEngine::whileAlive(void (BoostEngine::*job)()) {
  return [this, job, life = std::weak_ptr<const bool>(life_)] {
    if (!life.expired()) {
      (this->*job)();
    }
  };
}

void BoostEngine::removeDefaultGuard() {
  for (ListenerToken* guard : {&defaultGuard_, &deviceGuard_}) {
    if (*guard != 0) {
      host_.hardware.removePropertyListener(std::exchange(*guard, 0));
    }
  }
}

void BoostEngine::defaultOutputChanged() {
  // A listener may outlive its removal.
  if (!isRunning_) {
    return;
  }
  const auto loopback = hal_.device(loopbackUID_);
  const AudioObjectID defaultOutput = hal_.defaultOutput();
  if (!loopback) {
    return;
  }
  if (defaultOutput == loopback->id) {
    // After a time in which nobody kept the default output, so that we had to let go.
    if (currentOutputUID_.empty()) {
      resume();
    }
    return;
  }
  const AudioDeviceInfo chosen = hal_.describe(defaultOutput);
  const bool isRealOutput = chosen.outputChannels >= 1 && chosen.inputChannels < 1;
  const bool isFed = chosen.uid == currentOutputUID_ && chosen.id == boostedOutputID_;
  if (isRealOutput && !isFed) {
    // Music plays into the chosen output right now, and following raises that to full volume.
    hal_.setDefaultOutput(loopback->id);
    follow(chosen);
    if (!isRunning_) {
      return;  // whoever was told of the other output has ended the boost
    }
  }
  if (hal_.setDefaultOutput(loopback->id) != kAudioHardwareNoError) {
    // Music plays straight into a real output, which must not be a raised one.
    teardownAggregate();
  }
}

void BoostEngine::follow(const AudioDeviceInfo& output) {
  teardownAggregate();
  rebuild(output.uid);
  if (onOutputChanged) {
    onOutputChanged(output);
  }
}

void BoostEngine::deviceListChanged() {
  if (!isRunning_) {
    return;
  }
  const std::vector<AudioObjectID> devices = hal_.foreignDeviceIDs();
  if (devices.empty() || devices == knownDevices_) {
    return;
  }
  knownDevices_ = devices;
  const auto isGone = [&devices](AudioObjectID id) {
    return id != kAudioObjectUnknown && std::ranges::find(devices, id) == devices.end();
  };
  // With the loopback gone, programs play straight into an output that is raised.
  if (isGone(boostedOutputID_) || isGone(loopbackID_)) {
    teardownAggregate();
  }
  settleOwedLevels();
  if (currentOutputUID_.empty()) {
    resume();
  }
}

/// Feeds the wanted output again once it and the loopback are both there.
void BoostEngine::resume() {
  const std::string outputUID = wantedOutputUID_;
  if (!outputUID.empty() && hal_.device(loopbackUID_) && hal_.device(outputUID)) {
    teardownAggregate();
    rebuild(outputUID);
  }
}

/// Whoever stores volumes may give a device that it has just found the former one back, and a
/// loopback that has just been made may not take its volume yet: the boost would be too quiet from
/// then on. A volume that somebody chooses is left alone.
void BoostEngine::raiseAgain() {
  if (!isRunning_ || !boostedOutputPrevLevel_.volume || !isDefaultOnLoopback()) {
    return;
  }
  if (!loopbackGovernsVolume_) {
    handLevelToLoopback(loopbackID_, levelForLoopback_, boostedOutputUID_);
  }
  if (hal_.hasOutputVolume(boostedOutputID_, *boostedOutputPrevLevel_.volume)) {
    raiseIfGoverned();
  }
}

/// Where that fails the output is as it was before, and the next change tries again.
void BoostEngine::rebuild(const std::string& outputUID) {
  try {
    buildAndStart(outputUID);
  } catch (const EngineError&) {
    teardownAggregate();
    wantedOutputUID_ = outputUID;
    return;
  }
  reassertLoopbackDefault();
}

// Real output

void BoostEngine::raiseOutput(AudioObjectID output, const std::string& outputUID) {
  boostedOutputID_ = output;
  boostedOutputUID_ = outputUID;
  boostedOutputPrevLevel_ = formerLevel(output, outputUID);
  owedLevels_.erase(outputUID);
  formerLevels_[outputUID] = boostedOutputPrevLevel_;
  tellDebts();
  raiseIfGoverned();
}

/// The level of an output that is not raised, or that it had before.
OutputLevel BoostEngine::formerLevel(AudioObjectID output, const std::string& outputUID) const {
  // It vanished while it was raised, and may have come back just as loud.
  if (const auto owed = owedLevels_.find(outputUID); owed != owedLevels_.end()) {
    return owed->second;
  }
  // Whoever stores volumes may have stored that one, and have given it back after it was lowered.
  const auto former = formerLevels_.find(outputUID);
  const bool isRaised = hal_.hasOutputVolumeOnAnyElement(output, 1.0F);
  return isRaised && former != formerLevels_.end() ? former->second : outputLevel(hal_, output);
}

void BoostEngine::raiseIfGoverned() {
  const bool isMuted = boostedOutputPrevLevel_.mute.value_or(false);
  if (!loopbackGovernsVolume_ || (isMuted && !handMuteToLoopback(boostedOutputUID_))) {
    return;
  }
  // A volume that cannot be read could not be put back either.
  if (boostedOutputPrevLevel_.volume) {
    hal_.setOutputVolume(boostedOutputID_, 1.0F);
  }
  if (isMuted) {
    hal_.setOutputMute(boostedOutputID_, false);
  }
}

/// Moves an output's mute to where the system's control can reach it, once: what the user has done
/// with it since then is not undone when the output is fed again. False when the loopback did not
/// take it.
bool BoostEngine::handMuteToLoopback(const std::string& outputUID) {
  if (handedMutes_.contains(outputUID)) {
    return true;
  }
  hal_.setOutputMute(loopbackID_, true);
  const bool hasTaken = hal_.outputMute(loopbackID_).value_or(false);
  if (hasTaken) {
    handedMutes_.insert(outputUID);
  }
  return hasTaken;
}

void BoostEngine::lowerOutput() {
  if (boostedOutputID_ == kAudioObjectUnknown) {
    return;
  }
  const AudioObjectID output = std::exchange(boostedOutputID_, kAudioObjectUnknown);
  const OutputLevel level = std::exchange(boostedOutputPrevLevel_, {});
  if (!setOutputLevel(hal_, output, level)) {
    owedLevels_[boostedOutputUID_] = level;
    settleOwedLevels();
  }
  boostedOutputUID_.clear();
  tellDebts();
}

void BoostEngine::settleOwedLevels() {
  // The default output may go to one of them next, and a tap may play into it now: a call that
  // fails in passing must not leave it loud.
  for (int attempt = 0; attempt < kRestoreAttempts && !owedLevels_.empty(); ++attempt) {
    std::erase_if(owedLevels_, [this](const auto& owed) {
      const auto output = hal_.device(owed.first);
      return output && setOutputLevel(hal_, output->id, owed.second);
    });
  }
  tellDebts();
}

// Aggregate and callback

void BoostEngine::buildAndStart(const std::string& outputUID) {
  wantedOutputUID_.clear();
  const auto output = hal_.device(outputUID);
  if (!output) {
    throw EngineError::deviceNotFound(outputUID);
  }
  const auto loopback = hal_.device(loopbackUID_);
  if (!loopback || !putDefaultOn(loopback->id, kFollowWaitSeconds)) {
    throw EngineError::osStatus("SetDefaultOutput (loopback never took)", -1);
  }
  if (loopbackID_ != loopback->id) {
    // One that went and came back has a volume of its own.
    const OutputLevel level = levelForNewLoopback(*output);
    loopbackID_ = loopback->id;
    handLevelToLoopback(loopback->id, level, outputUID);
  }
  throwIfGivenUp();
  // The loopback's volume is the system's control: it is never raised, whoever asks to feed it.
  if (output->id != loopback->id) {
    raiseOutput(output->id, outputUID);
  }
  throwIfGivenUp();
  if (isRunning_ && onOutputWillChange) {
    onOutputWillChange(outputUID);
  }
  aggregateID_ = makeAggregate(loopbackUID_, outputUID);
  startIOProc();
  currentOutputUID_ = outputUID;
  wantedOutputUID_ = outputUID;
  if (isRunning_) {
    for (const double seconds : kRaiseAgainSeconds) {
      host_.queue.postAfter(seconds, whileAlive(&BoostEngine::raiseAgain));
    }
  }
}

AudioObjectID BoostEngine::makeAggregate(const std::string& loopbackUID,
                                         const std::string& outputUID) {
  AggregateDescription description;
  description.name = "Orvelle Engine";
  description.uid = std::string(kOwnUIDPrefix) + "aggregate." + std::to_string(currentProcessID());
  description.subdevices = {{outputUID, false}, {loopbackUID, true}};
  description.master = outputUID;
  description.isPrivate = true;
  AudioObjectID aggregate = kAudioObjectUnknown;
  const OSStatus status = host_.hardware.createAggregateDevice(description, aggregate);
  if (status != kAudioHardwareNoError || aggregate == kAudioObjectUnknown) {
    throw EngineError::osStatus("CreateAggregateDevice", status);
  }
  return aggregate;
}

void BoostEngine::startIOProc() {
  AudioDeviceIOProcID procID = 0;
  OSStatus status =
      host_.hardware.createIOProcID(aggregateID_, renderWhileOpen(gate_, *this), procID);
  if (status != kAudioHardwareNoError || procID == 0) {
    throw EngineError::osStatus("CreateIOProcID", status);
  }
  procID_ = procID;
  for (int attempt = 1; attempt <= kDeviceStartAttempts; ++attempt) {
    throwIfGivenUp();
    status = host_.hardware.startDevice(aggregateID_, procID_);
    if (status == kAudioHardwareNoError) {
      return;
    }
    if (attempt < kDeviceStartAttempts) {
      host_.clock.sleep(kDeviceStartWaitSeconds);
    }
  }
  throw EngineError::osStatus("AudioDeviceStart", status);
}

void BoostEngine::teardownAggregate() {
  if (!isDefaultOnLoopback()) {
    // Somebody has just moved the default output. A tapped program on our output then follows the
    // loopback only as long as the aggregate stands.
    lowerOutput();
  }
  if (procID_ != 0) {
    host_.hardware.stopDevice(aggregateID_, procID_);
    host_.hardware.destroyIOProcID(aggregateID_, std::exchange(procID_, 0));
    currentLevel = 0.0F;  // nobody would take the last one back
  }
  if (aggregateID_ != kAudioObjectUnknown) {
    host_.hardware.destroyAggregateDevice(std::exchange(aggregateID_, kAudioObjectUnknown));
  }
  currentOutputUID_.clear();
  lowerOutput();
}

}  // namespace orvelle
