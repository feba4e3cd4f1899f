#include "orvelle/platform/simulated/SimulatedHardware.h"

#include <algorithm>
#include <utility>

#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedObjects.h"

namespace orvelle {

namespace {

/// The size that the HAL reports for a value.
struct ByteSize {
  std::size_t operator()(std::monostate /*empty*/) const { return 0; }
  std::size_t operator()(const std::string& /*text*/) const { return sizeof(void*); }
  std::size_t operator()(const std::vector<AudioObjectID>& ids) const {
    return ids.size() * sizeof(AudioObjectID);
  }
  std::size_t operator()(const StreamConfiguration& streams) const {
    return 8 + streams.channelsPerBuffer.size() * sizeof(AudioBuffer);
  }
  template <class Plain>
  std::size_t operator()(const Plain& /*number*/) const {
    return sizeof(Plain);
  }
};

/// "create private aggregate a.uid (A Name), master speakers, of speakers, loopback with drift".
std::string aggregateText(const AggregateDescription& description) {
  std::string text = description.isPrivate ? "create private aggregate " : "create aggregate ";
  text += description.uid + " (" + description.name + "), master " + description.master;
  std::string separator = ", of ";
  const auto add = [&](const std::string& uid, bool drift) {
    text += separator + uid + (drift ? " with drift" : "");
    separator = ", ";
  };
  for (const SubDevice& member : description.subdevices) {
    add(member.uid, member.driftCompensation);
  }
  for (const SubTap& tap : description.taps) {
    add("tap " + tap.uid, tap.driftCompensation);
  }
  return text;
}

/// What a failing creation had made, nobody could name or unmake.
bool isCreation(CallKind kind) {
  return kind == CallKind::addPropertyListener || kind == CallKind::createAggregateDevice ||
         kind == CallKind::createIOProcID || kind == CallKind::createProcessTap;
}

bool namesTwice(const std::vector<SubDevice>& members, const SubDevice& member) {
  return std::ranges::count(members, member.uid, &SubDevice::uid) > 1;
}

}  // namespace

SimulatedHardware::SimulatedHardware(MainQueue& queue, Later later)
    : later_(std::move(later)), listeners_(queue) {}

SimulatedHardware::SimulatedHardware(ManualQueue& queue)
    : SimulatedHardware(queue, [&queue](double seconds, MainQueue::Job job) {
        queue.happenAfter(seconds, std::move(job));
      }) {}

SimulatedHardware::SimulatedHardware(MainQueue& queue)
    : SimulatedHardware(queue, [&queue](double seconds, MainQueue::Job job) {
        queue.postAfter(seconds, std::move(job));
      }) {}

SimulatedHardware::~SimulatedHardware() = default;

/// Every call that asks for a change comes through here: faults, lock, log, hook. Only sets have a
/// delayed action.
OSStatus SimulatedHardware::change(const CallTarget& target, const std::string& text,
                                   const std::function<OSStatus()>& action,
                                   const std::function<OSStatus(double)>& delayedAction) {
  if (beforeChange && !beforeChange()) {
    return kAudioHardwareNotRunningError;
  }
  ++callCount_;
  OSStatus status = kAudioHardwareNoError;
  {
    const std::lock_guard lock(mutex_);
    const auto fault = faults_.judge(target);
    if (!fault) {
      status = action();
    } else if (fault->effect == FaultEffect::fail) {
      status = fault->status;
    } else if (fault->effect == FaultEffect::failAfterwards) {
      if (!isCreation(target.kind)) {
        action();
      }
      status = fault->status;
    } else if (fault->effect == FaultEffect::delay) {
      status = delayedAction(fault->delaySeconds);
    }
    const bool failed = status != kAudioHardwareNoError;
    log_.push_back({target, status, failed ? text + " -> " + std::to_string(status) : text});
  }
  if (afterChange) {
    afterChange();
  }
  return status;
}

bool SimulatedHardware::failsQuestion(CallKind kind, AudioObjectID object,
                                      const PropertyAddress& address, OSStatus& status) {
  ++callCount_;
  const auto fault = faults_.judge({kind, object, address.selector});
  status = fault ? fault->status : kAudioHardwareNoError;
  return fault.has_value();
}

// Properties

bool SimulatedHardware::hasProperty(AudioObjectID object, const PropertyAddress& address) {
  const std::lock_guard lock(mutex_);
  OSStatus status = kAudioHardwareNoError;
  return !failsQuestion(CallKind::hasProperty, object, address, status) &&
         read(object, address).first == kAudioHardwareNoError;
}

OSStatus SimulatedHardware::isPropertySettable(AudioObjectID object, const PropertyAddress& address,
                                               bool& settable) {
  const std::lock_guard lock(mutex_);
  OSStatus status = kAudioHardwareNoError;
  if (failsQuestion(CallKind::isPropertySettable, object, address, status)) {
    return status;
  }
  status = read(object, address).first;
  if (status == kAudioHardwareNoError) {
    settable = isSettable(object, address);
  }
  return status;
}

OSStatus SimulatedHardware::getPropertyDataSize(AudioObjectID object,
                                                const PropertyAddress& address,
                                                std::uint32_t& byteSize) {
  const std::lock_guard lock(mutex_);
  OSStatus status = kAudioHardwareNoError;
  if (failsQuestion(CallKind::getPropertyDataSize, object, address, status)) {
    return status;
  }
  const PropertyResult result = read(object, address);
  if (result.first == kAudioHardwareNoError) {
    byteSize = static_cast<std::uint32_t>(std::visit(ByteSize{}, result.second));
  }
  return result.first;
}

OSStatus SimulatedHardware::getPropertyData(AudioObjectID object, const PropertyAddress& address,
                                            PropertyValue& value) {
  const std::lock_guard lock(mutex_);
  OSStatus status = kAudioHardwareNoError;
  if (failsQuestion(CallKind::getPropertyData, object, address, status)) {
    return status;
  }
  PropertyResult result = read(object, address);
  if (result.first == kAudioHardwareNoError) {
    value = std::move(result.second);
  }
  return result.first;
}

OSStatus SimulatedHardware::setPropertyData(AudioObjectID object, const PropertyAddress& address,
                                            const PropertyValue& value) {
  std::string text;
  {
    const std::lock_guard lock(mutex_);
    text = describe(object, address, value);
  }
  return change(
      {CallKind::setPropertyData, object, address.selector}, text,
      [&] {
        latestSets_[{object, address}] = value;
        return write(object, address, value);
      },
      [&](double delaySeconds) { return setLater(object, address, value, delaySeconds); });
}

OSStatus SimulatedHardware::setLater(AudioObjectID object, const PropertyAddress& address,
                                     const PropertyValue& value, double delaySeconds) {
  latestSets_[{object, address}] = value;
  later_(delaySeconds, [this, object, address, value, life = std::weak_ptr(life_)] {
    if (life.expired()) {
      return;
    }
    const std::lock_guard lock(mutex_);
    if (latestSets_[{object, address}] == value) {
      write(object, address, value);
    }
  });
  return kAudioHardwareNoError;
}

OSStatus SimulatedHardware::addPropertyListener(AudioObjectID object,
                                                const PropertyAddress& address,
                                                PropertyListener listener, ListenerToken& token) {
  return change({CallKind::addPropertyListener, object, address.selector}, "add listener", [&] {
    const OSStatus status = read(object, address).first;
    if (status == kAudioHardwareNoError) {
      token = listeners_.add(object, address, std::move(listener));
      ++listenerCount_;
    }
    return status;
  });
}

OSStatus SimulatedHardware::removePropertyListener(ListenerToken token) {
  return change({CallKind::removePropertyListener}, "remove listener", [&] {
    if (!listeners_.remove(token)) {
      return kAudioHardwareIllegalOperationError;
    }
    --listenerCount_;
    return kAudioHardwareNoError;
  });
}

// Aggregate devices

OSStatus SimulatedHardware::createAggregateDevice(const AggregateDescription& description,
                                                  AudioObjectID& aggregate) {
  return change({CallKind::createAggregateDevice}, aggregateText(description), [&] {
    Device device;
    const OSStatus status = resolveMembers(description, device);
    if (status != kAudioHardwareNoError) {
      return status;
    }
    device.id = ++lastObject_;
    aggregate = device.id;
    devices_.emplace(device.id, std::move(device));
    notify(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices});
    return kAudioHardwareNoError;
  });
}

OSStatus SimulatedHardware::resolveMembers(const AggregateDescription& description,
                                           Device& aggregate) {
  aggregate.isAggregate = true;
  aggregate.description.uid = description.uid;
  aggregate.description.name = description.name;
  aggregate.description.transportType = kAudioDeviceTransportTypeAggregate;
  aggregate.masterUID = description.master;
  for (const SubDevice& member : description.subdevices) {
    const Device* device = findDevice(member.uid);
    if (device == nullptr) {
      return kAudioHardwareBadDeviceError;
    }
    // It would feed what it plays back into itself.
    if (namesTwice(description.subdevices, member)) {
      return kAudioHardwareIllegalOperationError;
    }
    aggregate.members.push_back(device->id);
    if (member.uid == description.master) {
      aggregate.master = device->id;
    }
  }
  for (const SubTap& tap : description.taps) {
    const auto found = std::ranges::find_if(
        taps_, [&tap](const auto& keyed) { return keyed.second.description.uuid == tap.uid; });
    if (found == taps_.end()) {
      return kAudioHardwareBadObjectError;
    }
    aggregate.taps.push_back(found->first);
  }
  return aggregate.master == kAudioObjectUnknown ? kAudioHardwareBadDeviceError
                                                 : kAudioHardwareNoError;
}

OSStatus SimulatedHardware::destroyAggregateDevice(AudioObjectID aggregate) {
  std::vector<std::shared_ptr<IOProc>> orphans;
  const OSStatus status =
      change({CallKind::destroyAggregateDevice, aggregate}, "destroy aggregate", [&] {
        const auto found = devices_.find(aggregate);
        if (found == devices_.end() || !found->second.isAggregate) {
          return kAudioHardwareBadObjectError;
        }
        orphans = takeProcsOf(aggregate);
        devices_.erase(found);
        if (defaultOutput_ == aggregate) {
          chooseAnotherDefault();
        }
        notify(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices});
        return kAudioHardwareNoError;
      });
  std::ranges::for_each(orphans, [](const auto& proc) { proc->retire(); });
  return status;
}

// Callbacks

std::vector<std::shared_ptr<SimulatedHardware::IOProc>> SimulatedHardware::takeProcsOf(
    AudioObjectID device) {
  std::vector<std::shared_ptr<IOProc>> taken;
  std::erase_if(procs_, [&](const auto& keyed) {
    if (keyed.second->device != device) {
      return false;
    }
    taken.push_back(keyed.second);
    return true;
  });
  return taken;
}

OSStatus SimulatedHardware::findProc(AudioObjectID device, AudioDeviceIOProcID procID,
                                     IOProc*& proc) {
  if (!devices_.contains(device)) {
    return kAudioHardwareBadObjectError;
  }
  const auto found = procs_.find(procID);
  if (found == procs_.end() || found->second->device != device) {
    return kAudioHardwareIllegalOperationError;
  }
  proc = found->second.get();
  return kAudioHardwareNoError;
}

OSStatus SimulatedHardware::createIOProcID(AudioObjectID device, IOBlock block,
                                           AudioDeviceIOProcID& procID) {
  return change({CallKind::createIOProcID, device}, "create callback", [&] {
    if (!devices_.contains(device)) {
      return kAudioHardwareBadObjectError;
    }
    const auto proc = std::make_shared<IOProc>();
    proc->id = ++lastProc_;
    proc->device = device;
    proc->setBlock(std::move(block));
    procs_[proc->id] = proc;
    procID = proc->id;
    return kAudioHardwareNoError;
  });
}

OSStatus SimulatedHardware::destroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) {
  std::shared_ptr<IOProc> destroyed;
  const OSStatus status = change({CallKind::destroyIOProcID, device}, "destroy callback", [&] {
    IOProc* proc = nullptr;
    const OSStatus found = findProc(device, procID, proc);
    if (found == kAudioHardwareNoError) {
      destroyed = procs_.extract(procID).mapped();
    }
    return found;
  });
  if (destroyed) {
    destroyed->retire();
  }
  return status;
}

OSStatus SimulatedHardware::startDevice(AudioObjectID device, AudioDeviceIOProcID procID) {
  return change({CallKind::startDevice, device}, "start", [&] {
    IOProc* proc = nullptr;
    const OSStatus status = findProc(device, procID, proc);
    if (status != kAudioHardwareNoError) {
      return status;
    }
    const Device& started = devices_.at(device);
    if (started.isAggregate && !devices_.contains(started.master)) {
      return kAudioHardwareNotReadyError;
    }
    proc->isStarted = true;
    return kAudioHardwareNoError;
  });
}

OSStatus SimulatedHardware::stopDevice(AudioObjectID device, AudioDeviceIOProcID procID) {
  std::shared_ptr<IOProc> stopped;
  const OSStatus status = change({CallKind::stopDevice, device}, "stop", [&] {
    IOProc* proc = nullptr;
    const OSStatus found = findProc(device, procID, proc);
    if (found == kAudioHardwareNoError) {
      proc->isStarted = false;
      stopped = procs_.at(procID);
    }
    return found;
  });
  if (stopped) {
    stopped->waitForCall();
  }
  return status;
}

// Process taps

OSStatus SimulatedHardware::createProcessTap(const TapDescription& description,
                                             AudioObjectID& tap) {
  return change({CallKind::createProcessTap}, "create tap " + description.uuid, [&] {
    for (const AudioObjectID process : description.processes) {
      if (!processes_.contains(process)) {
        return kAudioHardwareBadObjectError;
      }
    }
    tap = ++lastObject_;
    taps_[tap] = {tap, description};
    return kAudioHardwareNoError;
  });
}

OSStatus SimulatedHardware::destroyProcessTap(AudioObjectID tap) {
  return change({CallKind::destroyProcessTap, tap}, "destroy tap", [&] {
    return taps_.erase(tap) == 1 ? kAudioHardwareNoError : kAudioHardwareBadObjectError;
  });
}

}  // namespace orvelle
