// How a running boost follows what happens to the devices.
#include <algorithm>
#include <utility>

#include "orvelle/BoostEngine.h"

namespace orvelle {

void BoostEngine::reassertLoopbackDefault() {
  const auto loopback = hal_.device(loopbackUID_);
  if (loopback && hal_.defaultOutput() != loopback->id) {
    hal_.setDefaultOutput(loopback->id);
  }
}

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

}  // namespace orvelle
