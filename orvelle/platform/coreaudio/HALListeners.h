// The HAL's property listeners, and what comes of calls that come too late.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"

namespace orvelle::coreaudio {

/// What the HAL is given as client data is a number: after a removal it is in nobody's table any
/// more, so that a call that was on its way finds nothing instead of freed memory.
///
/// Any thread but the real-time one. No lock of this class is held across a call of the HAL.
class HALListeners {
 public:
  /// Called on a thread of the HAL's. May take a short lock and post, and makes no call of the HAL.
  using Handler = std::function<void(AudioObjectID ours, const PropertyAddress& address)>;

  HALListeners(const ObjectIDs& ids, Handler onChange);
  HALListeners(const HALListeners&) = delete;
  HALListeners& operator=(const HALListeners&) = delete;
  ~HALListeners();

  /// Names one watch. 0 means none.
  using WatchID = std::uint64_t;

  OSStatus watch(AudioObjectID ours, const PropertyAddress& address, WatchID& id);
  void unwatch(WatchID id);
  /// After a restart of the audio server, which has forgotten them all: the system object is
  /// listened to anew; other objects are gone.
  void renew();
  /// Adds the listeners of the system object that `renew` could not. Main thread, as `renew`.
  void installMissing();

 private:
  struct Watch {
    AudioObjectID object = kAudioObjectUnknown;  // ours
    PropertyAddress address;
    std::uintptr_t key = 0;  ///< the client data; 0: the HAL knows no listener of ours
  };

  OSStatus install(Watch& watch) const;
  void uninstall(const Watch& watch) const;
  bool keepKey(WatchID id, std::uintptr_t key);

  const ObjectIDs& ids_;
  const Handler onChange_;
  std::mutex mutex_;  // guards everything below
  std::map<WatchID, Watch> watches_;
  WatchID lastID_ = 0;
};

}  // namespace orvelle::coreaudio
