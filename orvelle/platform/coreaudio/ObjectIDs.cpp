#include "orvelle/platform/coreaudio/ObjectIDs.h"

namespace orvelle::coreaudio {

AudioObjectID ObjectIDs::ours(AudioObjectID hal) {
  if (hal <= kAudioObjectSystemObject) {
    return hal;
  }
  const std::lock_guard lock(mutex_);
  const auto [entry, isNew] = oursByHAL_.try_emplace(hal, last_ + 1);
  if (isNew) {
    halByOurs_[++last_] = hal;
  }
  return entry->second;
}

AudioObjectID ObjectIDs::hal(AudioObjectID ours) const {
  if (ours <= kAudioObjectSystemObject) {
    return ours;
  }
  const std::lock_guard lock(mutex_);
  const auto found = halByOurs_.find(ours);
  return found == halByOurs_.end() ? kAudioObjectUnknown : found->second;
}

void ObjectIDs::forgetAll() {
  const std::lock_guard lock(mutex_);
  oursByHAL_.clear();
  halByOurs_.clear();
}

void ObjectIDs::forget(AudioObjectID ours) {
  const std::lock_guard lock(mutex_);
  if (const auto found = halByOurs_.find(ours); found != halByOurs_.end()) {
    oursByHAL_.erase(found->second);
    halByOurs_.erase(found);
  }
}

void ObjectIDs::rebind(AudioObjectID ours, AudioObjectID hal) {
  const std::lock_guard lock(mutex_);
  oursByHAL_[hal] = ours;
  halByOurs_[ours] = hal;
}

}  // namespace orvelle::coreaudio
