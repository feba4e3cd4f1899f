#include "orvelle/platform/coreaudio/HALListeners.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "orvelle/platform/coreaudio/PropertyCodec.h"

namespace orvelle::coreaudio {

namespace {

/// Who is told, by client data. The handler runs under the lock, so that an owner whose entry has
/// been taken out is not called any more.
class CallTable {
 public:
  using Call = std::function<void()>;

  std::uintptr_t add(Call call) {
    const std::lock_guard lock(mutex_);
    calls_.emplace(++lastKey_, std::move(call));
    return lastKey_;
  }

  void remove(std::uintptr_t key) {
    const std::lock_guard lock(mutex_);
    calls_.erase(key);
  }

  void call(std::uintptr_t key) {
    const std::lock_guard lock(mutex_);
    if (const auto found = calls_.find(key); found != calls_.end()) {
      found->second();
    }
  }

 private:
  std::mutex mutex_;
  std::map<std::uintptr_t, Call> calls_;
  std::uintptr_t lastKey_ = 0;
};

/// Never destroyed: the HAL's threads may call until the process has ended.
CallTable& callTable() {
  static auto* const table = new CallTable;
  return *table;
}

void* clientData(std::uintptr_t key) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a number in a pointer's place, never looked behind.
  return reinterpret_cast<void*>(key);
}

OSStatus propertyChanged(::AudioObjectID /*object*/, UInt32 /*addressCount*/,
                         const ::AudioObjectPropertyAddress* /*addresses*/, void* data) {
  callTable().call(reinterpret_cast<std::uintptr_t>(data));
  return kAudioHardwareNoError;
}

}  // namespace

HALListeners::HALListeners(const ObjectIDs& ids, Handler onChange)
    : ids_(ids), onChange_(std::move(onChange)) {}

HALListeners::~HALListeners() {
  for (const auto& [id, watch] : watches_) {
    uninstall(watch);
  }
}

OSStatus HALListeners::watch(AudioObjectID ours, const PropertyAddress& address, WatchID& id) {
  Watch watch{ours, address};
  const OSStatus status = install(watch);
  if (status == kAudioHardwareNoError) {
    const std::lock_guard lock(mutex_);
    id = ++lastID_;
    watches_[id] = watch;
  }
  return status;
}

OSStatus HALListeners::install(Watch& watch) const {
  const std::uintptr_t key = callTable().add(
      [this, object = watch.object, address = watch.address] { onChange_(object, address); });
  const ::AudioObjectPropertyAddress where = halAddress(watch.address);
  const OSStatus status = AudioObjectAddPropertyListener(ids_.hal(watch.object), &where,
                                                         propertyChanged, clientData(key));
  if (status == kAudioHardwareNoError) {
    watch.key = key;
  } else {
    callTable().remove(key);
  }
  return status;
}

void HALListeners::unwatch(WatchID id) {
  Watch watch;
  {
    const std::lock_guard lock(mutex_);
    const auto found = watches_.find(id);
    if (found == watches_.end()) {
      return;
    }
    watch = found->second;
    watches_.erase(found);
  }
  uninstall(watch);
}

void HALListeners::uninstall(const Watch& watch) const {
  callTable().remove(watch.key);
  const AudioObjectID hal = ids_.hal(watch.object);
  if (watch.key != 0 && hal != kAudioObjectUnknown) {
    const ::AudioObjectPropertyAddress where = halAddress(watch.address);
    AudioObjectRemovePropertyListener(hal, &where, propertyChanged, clientData(watch.key));
  }
}

void HALListeners::renew() {
  {
    const std::lock_guard lock(mutex_);
    for (auto& [id, watch] : watches_) {
      callTable().remove(std::exchange(watch.key, 0));
    }
  }
  installMissing();
}

void HALListeners::installMissing() {
  std::map<WatchID, Watch> missing;
  {
    const std::lock_guard lock(mutex_);
    std::ranges::copy_if(watches_, std::inserter(missing, missing.end()), [](const auto& entry) {
      return entry.second.key == 0 && entry.second.object == kAudioObjectSystemObject;
    });
  }
  for (auto& [id, watch] : missing) {
    if (install(watch) == kAudioHardwareNoError && !keepKey(id, watch.key)) {
      uninstall(watch);
    }
  }
}

/// False where the watch has been removed meanwhile.
bool HALListeners::keepKey(WatchID id, std::uintptr_t key) {
  const std::lock_guard lock(mutex_);
  const auto found = watches_.find(id);
  if (found == watches_.end()) {
    return false;
  }
  found->second.key = key;
  return true;
}

}  // namespace orvelle::coreaudio
