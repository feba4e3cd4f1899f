// How loudness moves from the output to the loopback and back.
#include <utility>

#include "orvelle/BoostEngine.h"

namespace orvelle {

namespace {

constexpr int kLowerAttempts = 3;

}  // namespace

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
  for (int attempt = 0; attempt < kLowerAttempts && !owedLevels_.empty(); ++attempt) {
    std::erase_if(owedLevels_, [this](const auto& owed) {
      const auto output = hal_.device(owed.first);
      return output && setOutputLevel(hal_, output->id, owed.second);
    });
  }
  tellDebts();
}

}  // namespace orvelle
