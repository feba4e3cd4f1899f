#include "orvelle/platform/coreaudio/ProcessTaps.h"

#include <CoreAudio/CoreAudio.h>

#include <algorithm>
#include <optional>
#include <variant>

#include "orvelle/platform/coreaudio/PropertyCodec.h"
#include "orvelle/platform/coreaudio/TapDescription.h"

namespace orvelle::coreaudio {

namespace {

std::optional<std::int32_t> pidOf(AudioObjectID halProcess) {
  PropertyValue value;
  readValue(halProcess, {kAudioProcessPropertyPID}, value);
  const auto* pid = std::get_if<std::int32_t>(&value);
  return pid == nullptr ? std::nullopt : std::optional(*pid);
}

/// The HAL's ids; empty unless all of them are listed.
std::vector<AudioObjectID> processesWith(const std::vector<std::int32_t>& pids) {
  PropertyValue value;
  readValue(kAudioObjectSystemObject, {kAudioHardwarePropertyProcessObjectList}, value);
  const auto* listed = std::get_if<std::vector<AudioObjectID>>(&value);
  std::vector<AudioObjectID> found;
  for (const AudioObjectID process : listed == nullptr ? std::vector<AudioObjectID>{} : *listed) {
    const auto pid = pidOf(process);
    if (pid && std::ranges::find(pids, *pid) != pids.end()) {
      found.push_back(process);
    }
  }
  return found.size() == pids.size() ? found : std::vector<AudioObjectID>{};
}

}  // namespace

ProcessTaps::~ProcessTaps() {
  for (const auto& [uid, tap] : taps_) {
    destroyTap(ids_.hal(tap.id));
  }
}

OSStatus ProcessTaps::create(const TapDescription& description, AudioObjectID& tap) {
  Tap made;
  made.description = description;
  std::vector<AudioObjectID> processes;
  for (const AudioObjectID process : description.processes) {
    processes.push_back(ids_.hal(process));
    const auto pid = pidOf(processes.back());
    if (!pid) {
      return kAudioHardwareBadObjectError;
    }
    made.pids.push_back(*pid);
  }
  AudioObjectID hal = kAudioObjectUnknown;
  const OSStatus status =
      createTap(processes, description.isPrivate, TapMuteBehavior::unmuted, hal, made.halUID);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  made.id = ids_.ours(hal);
  tap = made.id;
  const std::lock_guard lock(mutex_);
  taps_[description.uuid] = made;
  return status;
}

OSStatus ProcessTaps::destroy(AudioObjectID tap) {
  AudioObjectID hal = kAudioObjectUnknown;
  bool isInUse = false;
  {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if(taps_, [tap](const auto& entry) {
      return entry.second.id == tap && !entry.second.isDestroyed;
    });
    if (found == taps_.end()) {
      return kAudioHardwareBadObjectError;
    }
    hal = ids_.hal(tap);
    isInUse = found->second.users > 0;
    if (isInUse) {
      found->second.isDestroyed = true;
    } else {
      taps_.erase(found);
    }
  }
  return isInUse ? setTapMuteBehavior(hal, TapMuteBehavior::unmuted) : destroyTap(hal);
}

std::string ProcessTaps::acquire(const std::string& uid) {
  const std::lock_guard lock(mutex_);
  Tap* tap = find(uid);
  if (tap == nullptr || tap->isDestroyed) {
    return {};
  }
  ++tap->users;
  return tap->halUID;
}

void ProcessTaps::release(const std::string& uid) {
  AudioObjectID hal = kAudioObjectUnknown;
  {
    const std::lock_guard lock(mutex_);
    Tap* tap = find(uid);
    if (tap == nullptr || --tap->users > 0 || !tap->isDestroyed) {
      return;
    }
    hal = ids_.hal(tap->id);
    taps_.erase(uid);
  }
  destroyTap(hal);
}

bool ProcessTaps::waitsForSound(const std::string& uid) const {
  const std::lock_guard lock(mutex_);
  const auto found = taps_.find(uid);
  return found != taps_.end() && !found->second.isMuting &&
         found->second.description.muteBehavior != TapMuteBehavior::unmuted;
}

bool ProcessTaps::beginToMute(const std::string& uid) {
  AudioObjectID hal = kAudioObjectUnknown;
  TapMuteBehavior behavior = TapMuteBehavior::unmuted;
  {
    const std::lock_guard lock(mutex_);
    const Tap* tap = find(uid);
    if (tap == nullptr || tap->isDestroyed) {
      return false;
    }
    hal = ids_.hal(tap->id);
    behavior = tap->description.muteBehavior;
  }
  if (setTapMuteBehavior(hal, behavior) != kAudioHardwareNoError) {
    return false;
  }
  const std::lock_guard lock(mutex_);
  if (Tap* tap = find(uid)) {
    tap->isMuting = true;
  }
  return true;
}

std::string ProcessTaps::halUID(const std::string& uid) const {
  const std::lock_guard lock(mutex_);
  const auto found = taps_.find(uid);
  return found == taps_.end() || ids_.hal(found->second.id) == kAudioObjectUnknown
             ? std::string()
             : found->second.halUID;
}

std::vector<ProcessTaps::Tap> ProcessTaps::lost() const {
  std::vector<Tap> lost;
  const std::lock_guard lock(mutex_);
  for (const auto& [uid, tap] : taps_) {
    if (ids_.hal(tap.id) == kAudioObjectUnknown && !tap.isDestroyed) {
      lost.push_back(tap);
    }
  }
  return lost;
}

void ProcessTaps::renew() {
  for (const Tap& tap : lost()) {
    const std::vector<AudioObjectID> processes = processesWith(tap.pids);
    AudioObjectID hal = kAudioObjectUnknown;
    std::string halUID;
    if (processes.empty() ||
        createTap(processes, tap.description.isPrivate, TapMuteBehavior::unmuted, hal, halUID) !=
            kAudioHardwareNoError) {
      continue;
    }
    ids_.rebind(tap.id, hal);
    const std::lock_guard lock(mutex_);
    if (Tap* renewed = find(tap.description.uuid)) {
      renewed->halUID = halUID;
      renewed->isMuting = false;
    }
  }
}

std::string ProcessTaps::uid(AudioObjectID tap) const {
  const std::lock_guard lock(mutex_);
  const auto found =
      std::ranges::find_if(taps_, [tap](const auto& entry) { return entry.second.id == tap; });
  return found == taps_.end() ? std::string() : found->first;
}

ProcessTaps::Tap* ProcessTaps::find(const std::string& uid) {
  const auto found = taps_.find(uid);
  return found == taps_.end() ? nullptr : &found->second;
}

}  // namespace orvelle::coreaudio
