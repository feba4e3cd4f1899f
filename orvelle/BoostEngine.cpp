#include "orvelle/BoostEngine.h"

#include <algorithm>
#include <cmath>
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
constexpr int kRestoreDefaultAttempts = 3;

/// A scalar that differs by less is the same setting of the control.
constexpr float kVolumeTolerance = 0.005F;

bool sameVolume(std::optional<float> one, std::optional<float> other) {
  return one && other && std::abs(*one - *other) <= kVolumeTolerance;
}

}  // namespace

BoostEngine::BoostEngine(const EngineHost& host)
    : host_(host), hal_(host.hardware), meter_(host.queue, host.console, renderCalls, inputPeak) {}

BoostEngine::~BoostEngine() {
  removeDefaultGuard();
  gate_->closeAndWait();
}

void BoostEngine::start(const std::string& loopbackUID, const std::string& outputUID) {
  if (isRunning_) {
    return;
  }
  const auto loopback = hal_.device(loopbackUID);
  if (!loopback) {
    throw EngineError::deviceNotFound(loopbackUID);
  }
  loopbackUID_ = loopbackUID;
  previousDefaultOutput_ = hal_.defaultOutput();
  const OutputLevel previousLevel = levelOf(previousDefaultOutput_);
  if (!putDefaultOn(loopback->id, kDefaultOutputWaitSeconds)) {
    throw EngineError::osStatus("SetDefaultOutput (loopback never took)", -1);
  }
  handLevelToLoopback(loopback->id, previousLevel, outputUID);
  installDefaultGuard();
  buildAndStart(outputUID);
  isRunning_ = true;
  if (showMeter) {
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
  if (restoreDefault) {
    restoreDefaultOutput();
  }
}

void BoostEngine::restoreDefaultOutput() {
  const auto best = bestOutput(hal_.realOutputs());
  const AudioObjectID output = best ? best->id : previousDefaultOutput_;
  if (output == kAudioObjectUnknown) {
    return;
  }
  for (int attempt = 0; attempt < kRestoreDefaultAttempts; ++attempt) {
    if (hal_.setDefaultOutput(output) == kAudioHardwareNoError) {
      return;
    }
  }
}

// Default output and its volume

bool BoostEngine::putDefaultOn(AudioObjectID loopback, double waitSeconds) {
  for (int attempt = 0; attempt < kDefaultOutputAttempts; ++attempt) {
    if (hal_.defaultOutput() == loopback) {
      return true;
    }
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
      level.volume = levelOf(output->id).volume;
    }
  }
  // A loopback may remember a mute from an earlier life; nobody would find out why it is silent.
  level.mute = level.mute.value_or(false);
  loopbackGovernsVolume_ = setLevel(loopback, level) && level.volume.has_value();
}

BoostEngine::OutputLevel BoostEngine::levelOf(AudioObjectID output) const {
  return {hal_.outputVolume(output), hal_.outputMute(output)};
}

/// Whether the output has taken the volume. The quieter of the two changes comes first.
bool BoostEngine::setLevel(AudioObjectID output, const OutputLevel& level) const {
  const bool mute = level.mute.value_or(false);
  if (mute) {
    hal_.setOutputMute(output, true);
  }
  if (level.volume) {
    hal_.setOutputVolume(output, *level.volume);
  }
  if (level.mute && !mute) {
    hal_.setOutputMute(output, false);
  }
  return !level.volume || sameVolume(hal_.outputVolume(output), level.volume);
}

void BoostEngine::reassertLoopbackDefault() {
  const auto loopback = hal_.device(loopbackUID_);
  if (loopback && hal_.defaultOutput() != loopback->id) {
    hal_.setDefaultOutput(loopback->id);
  }
}

// Guard

void BoostEngine::installDefaultGuard() {
  const auto guarded = [this](void (BoostEngine::*handler)()) {
    return [this, handler, life = std::weak_ptr<const bool>(life_)] {
      if (!life.expired()) {
        (this->*handler)();
      }
    };
  };
  host_.hardware.addPropertyListener(kAudioObjectSystemObject,
                                     {kAudioHardwarePropertyDefaultOutputDevice},
                                     guarded(&BoostEngine::defaultOutputChanged), defaultGuard_);
  host_.hardware.addPropertyListener(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices},
                                     guarded(&BoostEngine::deviceListChanged), deviceGuard_);
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
  if (!loopback || defaultOutput == loopback->id) {
    return;
  }
  const AudioDeviceInfo chosen = hal_.describe(defaultOutput);
  const bool isRealOutput = chosen.outputChannels >= 1 && chosen.inputChannels < 1;
  if (isRealOutput && chosen.uid != currentOutputUID_) {
    // Music plays into the chosen output right now, and following raises that to full volume.
    hal_.setDefaultOutput(loopback->id);
    follow(chosen);
  }
  hal_.setDefaultOutput(loopback->id);
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
  const std::vector<AudioObjectID> devices = hal_.allDeviceIDs();
  const auto isPresent = [&devices](AudioObjectID id) {
    return std::ranges::find(devices, id) != devices.end();
  };
  if (boostedOutputID_ != kAudioObjectUnknown && !devices.empty() && !isPresent(boostedOutputID_)) {
    teardownAggregate();
  }
  settleOwedLevels();
  if (currentOutputUID_.empty() && hal_.device(wantedOutputUID_)) {
    teardownAggregate();
    rebuild(wantedOutputUID_);
  }
}

/// False when that failed. The output is then as it was before, and the next change tries again.
bool BoostEngine::rebuild(const std::string& outputUID) {
  try {
    buildAndStart(outputUID);
  } catch (const EngineError&) {
    teardownAggregate();
    return false;
  }
  reassertLoopbackDefault();
  return true;
}

// Real output

void BoostEngine::raiseOutput(const AudioDeviceInfo& output) {
  boostedOutputID_ = output.id;
  boostedOutputUID_ = output.uid;
  boostedOutputPrevLevel_ = levelOf(output.id);
  if (const auto owed = owedLevels_.find(output.uid); owed != owedLevels_.end()) {
    // It vanished while it was raised, and may have come back just as loud.
    boostedOutputPrevLevel_ = owed->second;
    owedLevels_.erase(owed);
  }
  // A volume that cannot be read could not be put back either.
  if (loopbackGovernsVolume_ && boostedOutputPrevLevel_.volume) {
    hal_.setOutputVolume(output.id, 1.0F);
  }
  // The mute has moved to the loopback, where the system's control can reach it.
  if (boostedOutputPrevLevel_.mute.value_or(false)) {
    hal_.setOutputMute(output.id, false);
  }
}

void BoostEngine::lowerOutput() {
  if (boostedOutputID_ == kAudioObjectUnknown) {
    return;
  }
  const AudioObjectID output = std::exchange(boostedOutputID_, kAudioObjectUnknown);
  const OutputLevel level = std::exchange(boostedOutputPrevLevel_, {});
  if (!setLevel(output, level)) {
    owedLevels_[boostedOutputUID_] = level;
  }
  boostedOutputUID_.clear();
}

void BoostEngine::settleOwedLevels() {
  std::erase_if(owedLevels_, [this](const auto& owed) {
    const auto output = hal_.device(owed.first);
    return output && setLevel(output->id, owed.second);
  });
}

// Aggregate and callback

void BoostEngine::buildAndStart(const std::string& outputUID) {
  wantedOutputUID_ = outputUID;
  const auto output = hal_.device(outputUID);
  if (!output) {
    throw EngineError::deviceNotFound(outputUID);
  }
  const auto loopback = hal_.device(loopbackUID_);
  if (!loopback || !putDefaultOn(loopback->id, kFollowWaitSeconds)) {
    throw EngineError::osStatus("SetDefaultOutput (loopback never took)", -1);
  }
  // The loopback's volume is the system's control: it is never raised, whoever asks to feed it.
  if (output->id != loopback->id) {
    raiseOutput(*output);
  }
  aggregateID_ = makeAggregate(loopbackUID_, outputUID);
  startIOProc();
  currentOutputUID_ = outputUID;
}

AudioObjectID BoostEngine::makeAggregate(const std::string& loopbackUID,
                                         const std::string& outputUID) {
  AggregateDescription description;
  description.name = "Orvelle Engine";
  description.uid = "app.orvelle.aggregate." + std::to_string(currentProcessID());
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
  OSStatus status = host_.hardware.createIOProcID(
      aggregateID_,
      [this, gate = gate_](AudioBufferList input, AudioBufferList output) {
        if (gate->enter()) {
          render(input, output);
          gate->leave();
        }
      },
      procID);
  if (status != kAudioHardwareNoError || procID == 0) {
    throw EngineError::osStatus("CreateIOProcID", status);
  }
  procID_ = procID;
  for (int attempt = 1; attempt <= kDeviceStartAttempts; ++attempt) {
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
  if (procID_ != 0) {
    host_.hardware.stopDevice(aggregateID_, procID_);
    host_.hardware.destroyIOProcID(aggregateID_, std::exchange(procID_, 0));
  }
  if (aggregateID_ != kAudioObjectUnknown) {
    host_.hardware.destroyAggregateDevice(std::exchange(aggregateID_, kAudioObjectUnknown));
  }
  currentOutputUID_.clear();
  lowerOutput();
}

}  // namespace orvelle
