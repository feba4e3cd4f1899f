#include "orvelle/BoostEngine.h"

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
/// Time to read a question and to answer it.
constexpr int kPermissionLooks = 150;
constexpr double kPermissionWaitSeconds = 0.2;
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
  if (!hal_.device(loopbackUID)) {
    throw EngineError::deviceNotFound(loopbackUID);
  }
  awaitPermission();
  throwIfGivenUp();
  const auto loopback = hal_.device(loopbackUID);  // anew: the answer may have taken its time
  if (!loopback) {
    throw EngineError::deviceNotFound(loopbackUID);
  }
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

/// A boost without the permission would silence everything. Before anything is changed: while the
/// system asks its user, the music goes on.
void BoostEngine::awaitPermission() const {
  CapturePermission permission = host_.hardware.capturePermission();
  if (permission == CapturePermission::undecided) {
    permission = awaitAnswer();
    if (const auto process = host_.undoKeeper.boostingProcess()) {
      throw EngineError::boostingAlready(*process);  // it has not waited for us
    }
  }
  if (permission != CapturePermission::granted) {
    throw EngineError::mayNotReceiveSound();
  }
}

CapturePermission BoostEngine::awaitAnswer() const {
  CapturePermission permission = CapturePermission::undecided;
  for (int look = 0; look < kPermissionLooks && permission == CapturePermission::undecided;
       ++look) {
    throwIfGivenUp();
    host_.clock.sleep(kPermissionWaitSeconds);
    permission = host_.hardware.capturePermission();
  }
  return permission;
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
