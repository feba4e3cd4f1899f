#include "orvelle/platform/coreaudio/CoreAudioParts.h"

#include <cmath>
#include <utility>

#include "orvelle/platform/coreaudio/PropertyCodec.h"
#include "orvelle/platform/coreaudio/Waiting.h"

namespace orvelle {

using coreaudio::ValueKind;

namespace {

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

}  // namespace

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
    status = setAndWait(hal, address, value);
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

OSStatus CoreAudioHardware::Parts::setAndWait(AudioObjectID hal, const PropertyAddress& address,
                                              const PropertyValue& value) {
  PropertyValue before;
  coreaudio::readValue(hal, address, before);
  const OSStatus status = coreaudio::writeValue(hal, address, value);
  if (status == kAudioHardwareNoError) {
    coreaudio::waitUntil(clock, kSetSeconds, [&] {
      PropertyValue now;
      coreaudio::readValue(hal, address, now);
      return now != before || isNear(now, value);
    });
  }
  return status;
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
  listeners.installMissing();
  aggregates.renewTapReaders();
  report(kDevices);
  // Had its news been lost, the next change back would look like none.
  report(kDefaultOutput);
  loudness.follow();
}

void CoreAudioHardware::Parts::defaultOutputChanged() {
  report(kDefaultOutput);
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

}  // namespace orvelle
