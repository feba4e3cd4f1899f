// What the CoreAudio back end is made of, and how news find their way through it.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "orvelle/platform/ListenerRegistry.h"
#include "orvelle/platform/coreaudio/AggregateDevices.h"
#include "orvelle/platform/coreaudio/CoreAudioHardware.h"
#include "orvelle/platform/coreaudio/HALListeners.h"
#include "orvelle/platform/coreaudio/IOProcs.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"
#include "orvelle/platform/coreaudio/ProcessTaps.h"
#include "orvelle/platform/coreaudio/TapLoudness.h"

namespace orvelle {

inline constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};

/// The lock guards `registrations` and `reported`, and is never held across a call of the HAL.
struct CoreAudioHardware::Parts {
  Parts(MainQueue& mainQueue, Clock& waitingClock);

  struct Registration {
    AudioObjectID object = kAudioObjectUnknown;
    PropertyAddress address;
    coreaudio::HALListeners::WatchID watch = 0;
  };

  OSStatus get(AudioObjectID object, const PropertyAddress& address, PropertyValue& value);
  OSStatus set(AudioObjectID object, const PropertyAddress& address, const PropertyValue& value);
  OSStatus setAndWait(AudioObjectID hal, const PropertyAddress& address,
                      const PropertyValue& value);
  std::vector<AudioObjectID> devices();

  void changed(AudioObjectID object, const PropertyAddress& address);
  void devicesChanged();
  void defaultOutputChanged();
  void report(const PropertyAddress& address);
  void serverRestarted();
  void post(void (Parts::*job)());
  void followLoudness() { loudness.follow(); }
  void aggregatesChanged();

  MainQueue& queue;
  Clock& clock;
  std::mutex mutex;
  std::map<ListenerToken, Registration> registrations;
  std::atomic<bool> hasRequestedMicrophone{false};
  /// What the listeners of the device list and of the default output were last told of.
  std::map<PropertyAddress, PropertyValue> reported;
  /// Posted jobs hold it weakly: they may come due after the end.
  std::shared_ptr<const bool> life = std::make_shared<const bool>(true);

  // Ended in reverse order: listeners are still called while aggregates end, and need all above.
  coreaudio::ObjectIDs ids;
  ListenerRegistry registry{queue};
  coreaudio::HALListeners listeners{
      ids,
      [this](AudioObjectID object, const PropertyAddress& address) { changed(object, address); }};
  coreaudio::IOProcs procs{ids, queue, clock};
  coreaudio::ProcessTaps taps{ids};
  coreaudio::AggregateDevices aggregates{ids, procs, taps, clock};
  coreaudio::TapLoudness loudness{ids, listeners, aggregates, procs, queue};
};

}  // namespace orvelle
