#include "orvelle/platform/coreaudio/CoreAudioHardware.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <utility>

#include "orvelle/platform/ListenerRegistry.h"
#include "orvelle/platform/PropertySize.h"
#include "orvelle/platform/coreaudio/AggregateDevices.h"
#include "orvelle/platform/coreaudio/HALListeners.h"
#include "orvelle/platform/coreaudio/IOProcs.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"
#include "orvelle/platform/coreaudio/ProcessTaps.h"
#include "orvelle/platform/coreaudio/PropertyCodec.h"
#include "orvelle/platform/coreaudio/TapLoudness.h"
#include "orvelle/platform/coreaudio/Waiting.h"

namespace orvelle {

using coreaudio::ValueKind;

namespace {

constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};
constexpr PropertyAddress kDefaultOutput{kAudioHardwarePropertyDefaultOutputDevice};
constexpr PropertyAddress kProcesses{kAudioHardwarePropertyProcessObjectList};
constexpr PropertyAddress kServerRestarted{::kAudioHardwarePropertyServiceRestarted};

/// A set is done when its listener fires, a few milliseconds later. The layers above read again
/// what they have set, and set it again where it has not taken.
constexpr double kSetSeconds = 0.1;

bool isLevel(const PropertyAddress& address) {
  return address.selector == kAudioDevicePropertyVolumeScalar ||
         address.selector == kAudioDevicePropertyMute;
}

bool isNear(const PropertyValue& value, const PropertyValue& wanted) {
  constexpr float tolerance = 0.005F;  // hardware rounds to the steps that it has
  const auto* scalar = std::get_if<float>(&value);
  const auto* wantedScalar = std::get_if<float>(&wanted);
  return scalar != nullptr && wantedScalar != nullptr
             ? std::abs(*scalar - *wantedScalar) <= tolerance
             : value == wanted;
}

/// Older systems deliver listeners on the main thread's run loop, unless told to use a thread of
/// their own. That loop may be held up for seconds by a start.
void useOwnNotificationThread() {
  const ::AudioObjectPropertyAddress address =
      coreaudio::halAddress({::kAudioHardwarePropertyRunLoop});
  const void* const none = nullptr;
  AudioObjectSetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, sizeof(none), &none);
}

}  // namespace

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
  void setAndWait(AudioObjectID hal, const PropertyAddress& address, const PropertyValue& value,
                  OSStatus& status);
  std::vector<AudioObjectID> devices();

  void changed(AudioObjectID object, const PropertyAddress& address);
  void devicesChanged();
  void defaultOutputChanged() { report(kDefaultOutput); }
  void report(const PropertyAddress& address);
  void serverRestarted();
  void post(void (Parts::*job)());
  void followLoudness() { loudness.follow(); }
  void aggregatesChanged();

  MainQueue& queue;
  Clock& clock;
  std::mutex mutex;
  std::map<ListenerToken, Registration> registrations;
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
  coreaudio::TapLoudness loudness{ids, listeners, aggregates, procs};
};

CoreAudioHardware::Parts::Parts(MainQueue& mainQueue, Clock& waitingClock)
    : queue(mainQueue), clock(waitingClock) {
  procs.onFirstSound = [this](AudioObjectID device) { return aggregates.muteTaps(device); };
  coreaudio::HALListeners::WatchID forever = 0;
  listeners.watch(kAudioObjectSystemObject, kServerRestarted, forever);
}

// Properties

OSStatus CoreAudioHardware::Parts::get(AudioObjectID object, const PropertyAddress& address,
                                       PropertyValue& value) {
  PropertyValue read;
  const OSStatus status = coreaudio::readValue(ids.hal(object), address, read);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  if (auto* list = std::get_if<std::vector<AudioObjectID>>(&read)) {
    if (address.selector == kAudioHardwarePropertyDevices) {
      aggregates.removeOwn(*list);
    }
    for (AudioObjectID& id : *list) {
      id = ids.ours(id);
    }
  } else if (coreaudio::kindOf(address.selector) == ValueKind::object) {
    read = std::uint32_t{ids.ours(std::get<std::uint32_t>(read))};
  }
  value = std::move(read);
  return status;
}

std::vector<AudioObjectID> CoreAudioHardware::Parts::devices() {
  PropertyValue value;
  get(kAudioObjectSystemObject, kDevices, value);
  const auto* list = std::get_if<std::vector<AudioObjectID>>(&value);
  return list == nullptr ? std::vector<AudioObjectID>{} : *list;
}

OSStatus CoreAudioHardware::Parts::set(AudioObjectID object, const PropertyAddress& address,
                                       const PropertyValue& value) {
  const AudioObjectID hal = ids.hal(object);
  if (hal == kAudioObjectUnknown) {
    return kAudioHardwareBadObjectError;
  }
  OSStatus status = kAudioHardwareNoError;
  if (isLevel(address)) {
    // Whoever raises an output has put the default output on a loopback before: what plays past
    // that has to know before it gets louder.
    loudness.update();
    setAndWait(hal, address, value, status);
  } else if (const auto* id = std::get_if<std::uint32_t>(&value);
             id != nullptr && coreaudio::kindOf(address.selector) == ValueKind::object) {
    const AudioObjectID meant = ids.hal(*id);
    status = meant == kAudioObjectUnknown
                 ? kAudioHardwareBadDeviceError
                 : coreaudio::writeValue(hal, address, std::uint32_t{meant});
  } else {
    status = coreaudio::writeValue(hal, address, value);
  }
  loudness.update();
  return status;
}

void CoreAudioHardware::Parts::setAndWait(AudioObjectID hal, const PropertyAddress& address,
                                          const PropertyValue& value, OSStatus& status) {
  PropertyValue before;
  coreaudio::readValue(hal, address, before);
  status = coreaudio::writeValue(hal, address, value);
  if (status == kAudioHardwareNoError) {
    coreaudio::waitUntil(clock, kSetSeconds, [&] {
      PropertyValue now;
      coreaudio::readValue(hal, address, now);
      return now != before || isNear(now, value);
    });
  }
}

// News: `changed` runs on a thread of the HAL's, everything else on the main thread

void CoreAudioHardware::Parts::changed(AudioObjectID object, const PropertyAddress& address) {
  if (address == kServerRestarted) {
    // At once: from now on the old ids may name other devices.
    ids.forgetAll();
    post(&Parts::serverRestarted);
  } else if (address == kDevices) {
    post(&Parts::devicesChanged);
  } else if (address == kDefaultOutput) {
    post(&Parts::defaultOutputChanged);
  } else {
    registry.notify(object, address);
  }
  if (isLevel(address) || address == kDefaultOutput) {
    post(&Parts::followLoudness);
  }
}

void CoreAudioHardware::Parts::post(void (Parts::*job)()) {
  queue.post([this, job, weak = std::weak_ptr(life)] {
    if (!weak.expired()) {
      (this->*job)();
    }
  });
}

void CoreAudioHardware::Parts::devicesChanged() {
  if (aggregates.isCreating()) {
    return;  // its id is not known yet; the end of the creation asks for another look
  }
  aggregates.renewTapReaders();
  report(kDevices);
  loudness.follow();
}

/// The making and unmaking of our own aggregates is told too, and is nobody's news; an engine that
/// makes one because of news would go round in a circle.
void CoreAudioHardware::Parts::report(const PropertyAddress& address) {
  PropertyValue current;
  get(kAudioObjectSystemObject, address, current);
  {
    const std::lock_guard lock(mutex);
    if (std::exchange(reported[address], current) == current) {
      return;
    }
  }
  registry.notify(kAudioObjectSystemObject, address);
}

void CoreAudioHardware::Parts::serverRestarted() {
  aggregates.forgetAll();
  listeners.renew();
  devicesChanged();
  defaultOutputChanged();
  registry.notify(kAudioObjectSystemObject, kProcesses);
}

void CoreAudioHardware::Parts::aggregatesChanged() {
  loudness.update();
  post(&Parts::devicesChanged);
  post(&Parts::followLoudness);
}

// The interface

CoreAudioHardware::CoreAudioHardware(MainQueue& queue, Clock& clock)
    : parts_(std::make_unique<Parts>(queue, clock)) {}

CoreAudioHardware::~CoreAudioHardware() = default;

std::unique_ptr<CoreAudioHardware> CoreAudioHardware::connect(MainQueue& queue, Clock& clock,
                                                              std::string& problem) {
  useOwnNotificationThread();
  PropertyValue devices;
  const OSStatus status = coreaudio::readValue(kAudioObjectSystemObject, kDevices, devices);
  if (status != kAudioHardwareNoError) {
    problem = "The audio system does not list its devices (OSStatus " + std::to_string(status) +
              "); log out and in again, or set ORVELLE_BACKEND=simulated for a demonstration.";
    return nullptr;
  }
  return std::unique_ptr<CoreAudioHardware>(new CoreAudioHardware(queue, clock));
}

bool CoreAudioHardware::hasProperty(AudioObjectID object, const PropertyAddress& address) {
  const ::AudioObjectPropertyAddress where = coreaudio::halAddress(address);
  return AudioObjectHasProperty(parts_->ids.hal(object), &where) != 0;
}

OSStatus CoreAudioHardware::isPropertySettable(AudioObjectID object, const PropertyAddress& address,
                                               bool& settable) {
  const ::AudioObjectPropertyAddress where = coreaudio::halAddress(address);
  Boolean isSettable = 0;
  const OSStatus status =
      AudioObjectIsPropertySettable(parts_->ids.hal(object), &where, &isSettable);
  if (status == kAudioHardwareNoError) {
    settable = isSettable != 0;
  }
  return status;
}

OSStatus CoreAudioHardware::getPropertyDataSize(AudioObjectID object,
                                                const PropertyAddress& address,
                                                std::uint32_t& byteSize) {
  if (object == kAudioObjectSystemObject && address == kDevices) {
    // Our own aggregates do not count.
    byteSize = propertySize(parts_->devices());
    return kAudioHardwareNoError;
  }
  const ::AudioObjectPropertyAddress where = coreaudio::halAddress(address);
  UInt32 asked = 0;
  const OSStatus status =
      AudioObjectGetPropertyDataSize(parts_->ids.hal(object), &where, 0, nullptr, &asked);
  if (status == kAudioHardwareNoError) {
    byteSize = asked;
  }
  return status;
}

OSStatus CoreAudioHardware::getPropertyData(AudioObjectID object, const PropertyAddress& address,
                                            PropertyValue& value) {
  return parts_->get(object, address, value);
}

OSStatus CoreAudioHardware::setPropertyData(AudioObjectID object, const PropertyAddress& address,
                                            const PropertyValue& value) {
  return parts_->set(object, address, value);
}

OSStatus CoreAudioHardware::addPropertyListener(AudioObjectID object,
                                                const PropertyAddress& address,
                                                PropertyListener listener, ListenerToken& token) {
  // The HAL takes listeners for properties, too, that never change because they do not exist.
  if (!hasProperty(object, address)) {
    return kAudioHardwareUnknownPropertyError;
  }
  PropertyValue current;  // read before anything can be told
  parts_->get(object, address, current);
  coreaudio::HALListeners::WatchID watch = 0;
  const OSStatus status = parts_->listeners.watch(object, address, watch);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  token = parts_->registry.add(object, address, std::move(listener));
  const std::lock_guard lock(parts_->mutex);
  const bool isFirst = std::ranges::none_of(parts_->registrations, [&](const auto& entry) {
    return entry.second.object == object && entry.second.address == address;
  });
  if (isFirst && object == kAudioObjectSystemObject) {
    parts_->reported[address] = std::move(current);
  }
  parts_->registrations[token] = {object, address, watch};
  return status;
}

OSStatus CoreAudioHardware::removePropertyListener(ListenerToken token) {
  coreaudio::HALListeners::WatchID watch = 0;
  {
    const std::lock_guard lock(parts_->mutex);
    const auto found = parts_->registrations.find(token);
    if (found == parts_->registrations.end()) {
      return kAudioHardwareIllegalOperationError;
    }
    watch = found->second.watch;
    parts_->registrations.erase(found);
  }
  parts_->registry.remove(token);
  parts_->listeners.unwatch(watch);
  return kAudioHardwareNoError;
}

OSStatus CoreAudioHardware::createAggregateDevice(const AggregateDescription& description,
                                                  AudioObjectID& aggregate) {
  const OSStatus status = parts_->aggregates.create(description, aggregate);
  parts_->aggregatesChanged();
  return status;
}

OSStatus CoreAudioHardware::destroyAggregateDevice(AudioObjectID aggregate) {
  const OSStatus status = parts_->aggregates.destroy(aggregate);
  parts_->aggregatesChanged();
  return status;
}

OSStatus CoreAudioHardware::createIOProcID(AudioObjectID device, IOBlock block,
                                           AudioDeviceIOProcID& procID) {
  const OSStatus status = parts_->aggregates.createIOProc(device, std::move(block), procID);
  parts_->loudness.update();
  return status;
}

OSStatus CoreAudioHardware::destroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) {
  return parts_->procs.destroy(device, procID);
}

OSStatus CoreAudioHardware::startDevice(AudioObjectID device, AudioDeviceIOProcID procID) {
  const OSStatus status = parts_->aggregates.startIOProc(device, procID);
  parts_->loudness.update();
  return status;
}

OSStatus CoreAudioHardware::stopDevice(AudioObjectID device, AudioDeviceIOProcID procID) {
  const OSStatus status = parts_->procs.stop(device, procID);
  parts_->loudness.update();
  return status;
}

OSStatus CoreAudioHardware::createProcessTap(const TapDescription& description,
                                             AudioObjectID& tap) {
  return parts_->taps.create(description, tap);
}

OSStatus CoreAudioHardware::destroyProcessTap(AudioObjectID tap) {
  parts_->aggregates.silenceReaders(parts_->taps.uid(tap));
  return parts_->taps.destroy(tap);
}

}  // namespace orvelle
