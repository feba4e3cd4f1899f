// Aggregates, callbacks and taps of the stand-in.
#include <algorithm>
#include <array>
#include <cstring>

#include "orvelle/platform/coreaudio/CapturePermission.h"
#include "orvelle/platform/coreaudio/TapDescription.h"
#include "tests/coreaudio/StandIn.h"
#include "tests/coreaudio/StandInIOProc.h"

namespace orvelle::coreaudio {

namespace {

/// A HAL's buffer list, whose buffers follow it in memory.
class BufferList {
 public:
  explicit BufferList(AudioBufferList buffers)
      : memory_(offsetof(::AudioBufferList, mBuffers) + buffers.size() * sizeof(::AudioBuffer)) {
    const auto count = static_cast<UInt32>(buffers.size());
    std::memcpy(memory_.data(), &count, sizeof(count));
    for (std::size_t index = 0; index < buffers.size(); ++index) {
      put(index,
          {buffers[index].mNumberChannels, buffers[index].mDataByteSize, buffers[index].mData});
    }
  }

  void put(std::size_t index, const ::AudioBuffer& buffer) {
    std::memcpy(&memory_[offsetof(::AudioBufferList, mBuffers) + index * sizeof(buffer)], &buffer,
                sizeof(buffer));
  }

  ::AudioBufferList* get() { return reinterpret_cast<::AudioBufferList*>(memory_.data()); }

 private:
  std::vector<std::byte> memory_;
};

}  // namespace

void StandIn::IOProc::call(AudioBufferList input, AudioBufferList output) const {
  if (callsNobody) {
    return;
  }
  BufferList inputs(input);
  BufferList outputs(output);
  std::vector<std::vector<float>> zeros;
  for (std::size_t index = 0; index < input.size(); ++index) {
    const AudioBuffer& buffer = input[index];
    const bool isTap = index + tapCount >= input.size();
    if (index < isStreamOn.size() && isStreamOn[index] == 0) {
      inputs.put(index, {buffer.mNumberChannels, 0, nullptr});
    } else if (isTap && refusesRecording) {
      zeros.emplace_back(buffer.mDataByteSize / sizeof(float), 0.0F);
      inputs.put(index, {buffer.mNumberChannels, buffer.mDataByteSize, zeros.back().data()});
    }
  }
  const ::AudioTimeStamp now{};
  const ForbiddenZone zone("a callback");
  proc(device, &now, inputs.get(), &now, outputs.get(), &now, clientData);
}

std::shared_ptr<StandIn::IOProc> StandIn::find(::AudioObjectID device,
                                               ::AudioDeviceIOProcID procID) {
  const std::lock_guard lock(mutex_);
  const auto found = procs_.find(reinterpret_cast<std::uintptr_t>(procID));
  return found == procs_.end() || found->second->device != device ? nullptr : found->second;
}

// Aggregates

OSStatus StandIn::createAggregate(CFDictionaryRef dictionary, ::AudioObjectID& device) {
  const AggregateDescription description = parseAggregate(dictionary);
  AudioObjectID made = kAudioObjectUnknown;
  const OSStatus status = world_.createAggregateDevice(description, made);
  if (status == kAudioHardwareNoError) {
    device = halID(made);
    const std::lock_guard lock(mutex_);
    aggregates_[device] = {description, queue_.now()};
  }
  if (status == kAudioHardwareNoError && adversity.duringCreation) {
    adversity.duringCreation();
  }
  callListenersDuringCall();
  return status;
}

OSStatus StandIn::destroyAggregate(::AudioObjectID device) {
  {
    const std::lock_guard lock(mutex_);
    if (aggregates_.erase(device) != 0 && adversity.destroyedAggregatesLingerSeconds > 0.0) {
      lingering_[device] = queue_.now() + adversity.destroyedAggregatesLingerSeconds;
    }
    if (std::ranges::any_of(procs_,
                            [&](const auto& keyed) { return keyed.second->device == device; })) {
      reportFault("an aggregate is destroyed under its callbacks");
    }
  }
  const OSStatus status = world_.destroyAggregateDevice(worldID(device));
  callListenersDuringCall();
  return status;
}

// Callbacks

OSStatus StandIn::createIOProc(::AudioObjectID device, ::AudioDeviceIOProc proc, void* clientData,
                               ::AudioDeviceIOProcID& procID) {
  const auto made = std::make_shared<IOProc>();
  made->device = device;
  made->proc = proc;
  made->clientData = clientData;
  made->refusesRecording = adversity.refusesRecording;
  std::uint64_t key = 0;
  {
    const std::lock_guard lock(mutex_);
    key = ++lastKey_;
    // An id looks like a function, and is none.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    made->id = reinterpret_cast<::AudioDeviceIOProcID>(key);
    if (const auto found = aggregates_.find(device); found != aggregates_.end()) {
      made->tapCount = found->second.description.taps.size();
      for (const SubDevice& member : found->second.description.subdevices) {
        const DeviceDescription described = world_.device(member.uid);
        made->microphones.insert(made->microphones.end(), described.inputBuffers.size(),
                                 described.isLoopback ? "" : member.uid);
      }
      made->microphones.resize(made->microphones.size() + made->tapCount);
    }
  }
  made->isStreamOn.assign(made->microphones.size(), 1);
  const OSStatus status = world_.createIOProcID(
      worldID(device),
      [made](AudioBufferList input, AudioBufferList output) { made->call(input, output); },
      made->worldID);
  if (status == kAudioHardwareNoError) {
    procID = made->id;
    const std::lock_guard lock(mutex_);
    procs_[key] = made;
  }
  return status;
}

OSStatus StandIn::destroyIOProc(::AudioObjectID device, ::AudioDeviceIOProcID procID) {
  const auto proc = find(device, procID);
  if (!proc) {
    return kAudioHardwareIllegalOperationError;
  }
  if (proc->isStarted) {
    reportFault("a callback is destroyed that has not been stopped");
  }
  {
    const std::lock_guard lock(mutex_);
    procs_.erase(reinterpret_cast<std::uintptr_t>(procID));
  }
  const OSStatus status = world_.destroyIOProcID(worldID(device), proc->worldID);
  if (adversity.callsLate) {
    callLater([proc] {
      std::array<float, 4> played{};
      std::array<float, 4> untouched{};
      untouched.fill(7.0F);
      std::array<float, 4> output = untouched;
      const std::array inputs = {AudioBuffer{2, sizeof(played), played.data()}};
      const std::array outputs = {AudioBuffer{2, sizeof(output), output.data()}};
      proc->call(inputs, outputs);
      if (output != untouched) {
        reportFault("a late call of a destroyed callback runs its block");
      }
    });
  }
  return status;
}

OSStatus StandIn::start(::AudioObjectID device, ::AudioDeviceIOProcID procID) {
  callListenersDuringCall();
  const auto proc = find(device, procID);
  if (!proc) {
    // The world has the status for it.
    return world_.startDevice(worldID(device), 0);
  }
  checkMicrophone(*proc);
  const int start = ++proc->starts;
  if (start <= adversity.failingStarts) {
    return kAudioHardwareNotReadyError;
  }
  proc->callsNobody = start <= adversity.startsWithoutCalls;
  proc->isStarted = true;
  proc->startedAt = queue_.now();
  return start <= adversity.startsWithoutRunning
             ? kAudioHardwareNoError
             : world_.startDevice(worldID(device), proc->worldID);
}

void StandIn::checkMicrophone(const IOProc& proc) const {
  if (proc.microphones.size() > proc.tapCount &&
      adversity.microphone != CapturePermission::granted) {
    reportFault("inputs are read that deliver silence without the permission");
  }
  for (std::size_t index = 0; index < proc.microphones.size(); ++index) {
    if (!proc.microphones[index].empty() && proc.isStreamOn[index] != 0) {
      reportFault("the microphone of " + proc.microphones[index] + " is opened");
    }
  }
}

OSStatus StandIn::stop(::AudioObjectID device, ::AudioDeviceIOProcID procID) {
  const auto proc = find(device, procID);
  if (!proc) {
    return world_.stopDevice(worldID(device), 0);
  }
  proc->isStarted = false;
  return world_.stopDevice(worldID(device), proc->worldID);
}

// Taps

OSStatus StandIn::createTap(const std::vector<::AudioObjectID>& processes, bool isPrivate,
                            TapMuteBehavior muteBehavior, ::AudioObjectID& tap, std::string& uid) {
  TapDescription description;
  for (const ::AudioObjectID process : processes) {
    description.processes.push_back(worldID(process));
  }
  description.isPrivate = isPrivate;
  description.muteBehavior = muteBehavior;
  {
    const std::lock_guard lock(mutex_);
    description.uuid = "00000000-0000-4000-8000-" + std::to_string(100000000000 + ++lastKey_);
  }
  AudioObjectID made = kAudioObjectUnknown;
  const OSStatus status = world_.createProcessTap(description, made);
  if (status == kAudioHardwareNoError) {
    tap = halID(made);
    uid = description.uuid;
    const std::lock_guard lock(mutex_);
    taps_[tap] = uid;
  }
  return status;
}

OSStatus StandIn::setTapMuteBehavior(::AudioObjectID tap, TapMuteBehavior muteBehavior) {
  return world_.setTapMuteBehavior(worldID(tap), muteBehavior);
}

OSStatus StandIn::destroyTap(::AudioObjectID tap) {
  {
    const std::lock_guard lock(mutex_);
    const auto found = taps_.find(tap);
    const std::string uid = found == taps_.end() ? std::string() : found->second;
    for (const auto& [id, aggregate] : aggregates_) {
      const auto& taps = aggregate.description.taps;
      if (std::ranges::find(taps, uid, &SubTap::uid) != taps.end()) {
        reportFault("a tap is destroyed before its aggregate");
      }
    }
    taps_.erase(tap);
  }
  return world_.destroyProcessTap(worldID(tap));
}

// What Objective-C says on the platform

OSStatus createTap(const std::vector<AudioObjectID>& processes, bool isPrivate,
                   TapMuteBehavior muteBehavior, AudioObjectID& tap, std::string& uid) {
  checkThread("AudioHardwareCreateProcessTap");
  return StandIn::current().createTap(processes, isPrivate, muteBehavior, tap, uid);
}

OSStatus setTapMuteBehavior(AudioObjectID tap, TapMuteBehavior muteBehavior) {
  checkThread("AudioObjectSetPropertyData");
  return StandIn::current().setTapMuteBehavior(tap, muteBehavior);
}

OSStatus destroyTap(AudioObjectID tap) {
  checkThread("AudioHardwareDestroyProcessTap");
  return StandIn::current().destroyTap(tap);
}

CapturePermission microphonePermission() {
  checkThread("authorizationStatusForMediaType");
  return StandIn::current().adversity.microphone;
}

void requestMicrophone() {
  checkThread("requestAccessForMediaType");
  ++StandIn::current().adversity.microphoneRequests;
}

}  // namespace orvelle::coreaudio
