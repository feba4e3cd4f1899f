// What people and other programs do to a simulated world, and what tests ask of it.
#include <algorithm>
#include <stdexcept>
#include <utility>

#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "orvelle/platform/simulated/SimulatedObjects.h"

namespace orvelle {

AudioObjectID SimulatedHardware::plug(const DeviceDescription& device) {
  const std::lock_guard lock(mutex_);
  const AudioObjectID id = ++lastObject_;
  Device& added = devices_[id];
  added.id = id;
  added.description = device;
  returnToTapReaders(added);
  notify(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices});
  if (defaultOutput_ == kAudioObjectUnknown && added.outputChannels() > 0) {
    putDefaultOutput(id);
  }
  return id;
}

void SimulatedHardware::returnToTapReaders(const Device& device) {
  for (auto& [id, reader] : devices_) {
    const bool isWaiting = !reader.taps.empty() && !devices_.contains(reader.master) &&
                           reader.masterUID == device.description.uid;
    if (isWaiting) {
      std::ranges::replace(reader.members, reader.master, device.id);
      reader.master = device.id;
    }
  }
}

DeviceDescription SimulatedHardware::unplug(const std::string& uid) {
  DeviceDescription description;
  std::vector<std::shared_ptr<IOProc>> orphans;
  {
    const std::lock_guard lock(mutex_);
    const Device* device = findDevice(uid);
    if (device == nullptr) {
      return description;
    }
    const AudioObjectID id = device->id;
    description = device->description;
    orphans = takeProcsOf(id);
    if (description.isLoopback) {
      lostLoopback_.emplace(id, description);
    }
    devices_.erase(id);
    notify(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices});
    if (defaultOutput_ == id) {
      chooseAnotherDefault();
    }
  }
  std::ranges::for_each(orphans, [](const auto& proc) { proc->retire(); });
  return description;
}

void SimulatedHardware::chooseAnotherDefault() {
  const auto isOutput = [](const auto& keyed) { return keyed.second.outputChannels() > 0; };
  const auto isRealOutput = [&](const auto& keyed) {
    return isOutput(keyed) && keyed.second.description.inputBuffers.empty();
  };
  auto next = std::ranges::find_if(devices_, isRealOutput);
  if (next == devices_.end()) {
    next = std::ranges::find_if(devices_, isOutput);
  }
  defaultOutput_ = next == devices_.end() ? kAudioObjectUnknown : next->first;
  notify(kAudioObjectSystemObject, {kAudioHardwarePropertyDefaultOutputDevice});
}

void SimulatedHardware::chooseDefaultOutput(const std::string& uid) {
  const std::lock_guard lock(mutex_);
  if (const Device* device = findDevice(uid)) {
    putDefaultOutput(device->id);
  }
}

void SimulatedHardware::setVolume(const std::string& uid, float scalar) {
  const std::lock_guard lock(mutex_);
  if (Device* device = findDevice(uid)) {
    for (auto& [element, control] : device->description.volumes) {
      control.value = scalar;
      notify(device->id,
             {kAudioDevicePropertyVolumeScalar, kAudioObjectPropertyScopeOutput, element});
    }
  }
}

void SimulatedHardware::setMute(const std::string& uid, bool mute) {
  const std::lock_guard lock(mutex_);
  if (Device* device = findDevice(uid)) {
    device->description.mute = mute;
    notify(device->id, {kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput});
  }
}

AudioObjectID SimulatedHardware::launch(const ProcessDescription& process) {
  const std::lock_guard lock(mutex_);
  const AudioObjectID id = ++lastObject_;
  processes_[id] = {id, process};
  notify(kAudioObjectSystemObject, {kAudioHardwarePropertyProcessObjectList});
  return id;
}

void SimulatedHardware::setPlaying(AudioObjectID process, bool isPlaying) {
  const std::lock_guard lock(mutex_);
  if (const auto found = processes_.find(process); found != processes_.end()) {
    found->second.description.isPlaying = isPlaying;
    notify(process, {kAudioProcessPropertyIsRunningOutput});
  }
}

void SimulatedHardware::quitProcess(AudioObjectID process) {
  const std::lock_guard lock(mutex_);
  processes_.erase(process);
  notify(kAudioObjectSystemObject, {kAudioHardwarePropertyProcessObjectList});
}

OSStatus SimulatedHardware::setTapMuteBehavior(AudioObjectID tap, TapMuteBehavior muteBehavior) {
  const std::lock_guard lock(mutex_);
  const auto found = taps_.find(tap);
  if (found == taps_.end()) {
    return kAudioHardwareBadObjectError;
  }
  found->second.description.muteBehavior = muteBehavior;
  return kAudioHardwareNoError;
}

void SimulatedHardware::leaveTapLoudnessToOthers() {
  const std::lock_guard lock(mutex_);
  governsTaps_ = false;
}

void SimulatedHardware::endClient() {
  std::map<AudioDeviceIOProcID, std::shared_ptr<IOProc>> procs;
  {
    const std::lock_guard lock(mutex_);
    procs.swap(procs_);
    taps_.clear();
    listeners_.clear();
    listenerCount_ = 0;
    std::erase_if(devices_, [](const auto& keyed) { return keyed.second.isAggregate; });
    if (!devices_.contains(defaultOutput_)) {
      chooseAnotherDefault();
    }
  }
  std::ranges::for_each(procs, [](const auto& keyed) { keyed.second->retire(); });
}

// Questions of tests

SimulatedHardware::Device* SimulatedHardware::findDevice(const std::string& uid) {
  return const_cast<Device*>(std::as_const(*this).findDevice(uid));
}

const SimulatedHardware::Device* SimulatedHardware::findDevice(const std::string& uid) const {
  const auto found = std::ranges::find_if(
      devices_, [&uid](const auto& keyed) { return keyed.second.description.uid == uid; });
  return found == devices_.end() ? nullptr : &found->second;
}

AudioObjectID SimulatedHardware::id(const std::string& uid) const {
  const std::lock_guard lock(mutex_);
  const Device* device = findDevice(uid);
  return device == nullptr ? kAudioObjectUnknown : device->id;
}

std::string SimulatedHardware::defaultOutputUID() const {
  const std::lock_guard lock(mutex_);
  const auto found = devices_.find(defaultOutput_);
  return found == devices_.end() ? std::string() : found->second.description.uid;
}

DeviceDescription SimulatedHardware::device(const std::string& uid) const {
  const std::lock_guard lock(mutex_);
  const Device* device = findDevice(uid);
  return device == nullptr ? DeviceDescription{} : device->description;
}

std::size_t SimulatedHardware::aggregateCount() const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(
      std::ranges::count_if(devices_, [](const auto& keyed) { return keyed.second.isAggregate; }));
}

std::size_t SimulatedHardware::ioProcCount() const {
  const std::lock_guard lock(mutex_);
  return procs_.size();
}

std::size_t SimulatedHardware::tapCount() const {
  const std::lock_guard lock(mutex_);
  return taps_.size();
}

std::size_t SimulatedHardware::listenerCount() const {
  const std::lock_guard lock(mutex_);
  return listenerCount_;
}

// Faults and log

void SimulatedHardware::inject(const Fault& fault) {
  const bool needsSet = fault.effect == FaultEffect::ignore || fault.effect == FaultEffect::delay;
  if (needsSet && fault.kind != CallKind::setPropertyData) {
    throw std::invalid_argument("only sets can be ignored or delayed");
  }
  const std::lock_guard lock(mutex_);
  faults_.add(fault);
}

void SimulatedHardware::injectListenerFault(const ListenerFault& fault) {
  const std::lock_guard lock(mutex_);
  faults_.addListenerFault(fault);
}

void SimulatedHardware::clearFaults() {
  const std::lock_guard lock(mutex_);
  faults_.clear();
}

std::vector<CallRecord> SimulatedHardware::log() const {
  const std::lock_guard lock(mutex_);
  return log_;
}

std::vector<std::string> SimulatedHardware::logTexts() const {
  std::vector<std::string> texts;
  for (const CallRecord& record : log()) {
    texts.push_back(record.text);
  }
  return texts;
}

void SimulatedHardware::clearLog() {
  const std::lock_guard lock(mutex_);
  log_.clear();
}

}  // namespace orvelle
