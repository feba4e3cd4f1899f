#include "orvelle/platform/coreaudio/CoreAudioHardware.h"

#include <algorithm>
#include <utility>

#include "orvelle/platform/PropertySize.h"
#include "orvelle/platform/coreaudio/CapturePermission.h"
#include "orvelle/platform/coreaudio/CoreAudioParts.h"
#include "orvelle/platform/coreaudio/PropertyCodec.h"

namespace orvelle {

namespace {

/// Older systems deliver listeners on the main thread's run loop, unless told to use a thread of
/// their own. That loop may be held up for seconds by a start.
void useOwnNotificationThread() {
  const ::AudioObjectPropertyAddress address =
      coreaudio::halAddress({::kAudioHardwarePropertyRunLoop});
  const void* const none = nullptr;
  AudioObjectSetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, sizeof(none), &none);
}

}  // namespace

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
  PropertyValue current;  // read before anything can be told
  // The HAL takes listeners for properties, too, that never change because they do not exist.
  if (parts_->get(object, address, current) == kAudioHardwareUnknownPropertyError) {
    return kAudioHardwareUnknownPropertyError;
  }
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

CapturePermission CoreAudioHardware::capturePermission() {
  const CapturePermission permission = coreaudio::microphonePermission();
  if (permission == CapturePermission::undecided &&
      !parts_->hasRequestedMicrophone.exchange(true)) {
    coreaudio::requestMicrophone();
  }
  return permission;
}

}  // namespace orvelle
