#include "orvelle/platform/coreaudio/IOProcs.h"

#include <algorithm>
#include <utility>

#include "orvelle/platform/coreaudio/PropertyCodec.h"
#include "orvelle/platform/coreaudio/StreamUsage.h"
#include "orvelle/platform/coreaudio/Waiting.h"

namespace orvelle::coreaudio {

namespace {

constexpr double kStartRetrySeconds = 0.1;
constexpr double kWatchSeconds = 0.05;
/// A device that runs calls back within some ten milliseconds, a Bluetooth one within some hundred.
constexpr double kSilentDeviceSeconds = 1.0;
constexpr int kMostRestarts = 3;

/// Where it cannot be read, the callbacks have to tell.
bool mayBeRunning(AudioObjectID halDevice) {
  PropertyValue value;
  readValue(halDevice, {kAudioDevicePropertyDeviceIsRunning}, value);
  const auto* flag = std::get_if<std::uint32_t>(&value);
  return flag == nullptr || *flag != 0;
}

}  // namespace

IOProcs::IOProcs(const ObjectIDs& ids, MainQueue& queue, Clock& clock)
    : ids_(ids), queue_(queue), clock_(clock) {}

IOProcs::~IOProcs() {
  while (!procs_.empty()) {
    const auto [procID, proc] = *procs_.begin();
    destroy(proc->device, procID);
  }
}

IOProcs::ProcPtr IOProcs::find(AudioObjectID device, AudioDeviceIOProcID procID) const {
  const std::lock_guard lock(mutex_);
  const auto found = procs_.find(procID);
  return found == procs_.end() || found->second->device != device ? nullptr : found->second;
}

std::vector<std::pair<AudioDeviceIOProcID, IOProcs::ProcPtr>> IOProcs::of(
    AudioObjectID device) const {
  std::vector<std::pair<AudioDeviceIOProcID, ProcPtr>> found;
  const std::lock_guard lock(mutex_);
  for (const auto& entry : procs_) {
    if (entry.second->device == device) {
      found.emplace_back(entry);
    }
  }
  return found;
}

OSStatus IOProcs::create(AudioObjectID device, CallbackSettings settings,
                         AudioDeviceIOProcID& procID) {
  const auto proc = std::make_shared<Proc>();
  proc->device = device;
  proc->slot = CallbackSlot::occupy(std::move(settings));
  if (!proc->slot) {
    return kAudioHardwareIllegalOperationError;
  }
  const OSStatus status = makeAtHAL(*proc);
  if (status == kAudioHardwareNoError) {
    const std::lock_guard lock(mutex_);
    procID = ++lastID_;
    procs_[procID] = proc;
  }
  return status;
}

OSStatus IOProcs::makeAtHAL(Proc& proc) const {
  ::AudioDeviceIOProcID made = nullptr;
  const OSStatus status = AudioDeviceCreateIOProcID(ids_.hal(proc.device), CallbackSlot::run,
                                                    proc.slot->clientData(), &made);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  proc.hal = made;
  if (const std::uint32_t dropped = proc.slot->droppedInputs(); dropped != 0) {
    turnOffInputs(ids_.hal(proc.device), made, dropped);
  }
  return made == nullptr ? kAudioHardwareUnspecifiedError : status;
}

OSStatus IOProcs::destroy(AudioObjectID device, AudioDeviceIOProcID procID) {
  const ProcPtr proc = find(device, procID);
  if (!proc) {
    return kAudioHardwareIllegalOperationError;
  }
  stop(device, procID);
  {
    const std::lock_guard lock(mutex_);
    procs_.erase(procID);
  }
  const AudioObjectID halDevice = ids_.hal(device);
  const OSStatus status = halDevice == kAudioObjectUnknown || proc->hal == nullptr
                              ? kAudioHardwareNoError  // it has gone before
                              : AudioDeviceDestroyIOProcID(halDevice, proc->hal);
  // Whatever came of that, the block does not run again.
  proc->slot.reset();
  return status;
}

void IOProcs::destroyAllOf(AudioObjectID device) {
  for (const auto& [procID, proc] : of(device)) {
    destroy(device, procID);
  }
}

OSStatus IOProcs::start(AudioObjectID device, AudioDeviceIOProcID procID,
                        const Patience& patience) {
  const ProcPtr proc = find(device, procID);
  // Without a callback the HAL would start the device all the same.
  if (!proc || proc->hal == nullptr) {
    return kAudioHardwareIllegalOperationError;
  }
  const AudioObjectID halDevice = ids_.hal(device);
  OSStatus status = startAndLook(halDevice, proc->hal, patience.runningSeconds);
  for (int attempt = 1; attempt < patience.attempts && status != kAudioHardwareNoError; ++attempt) {
    clock_.sleep(kStartRetrySeconds);
    status = startAndLook(halDevice, proc->hal, patience.runningSeconds);
  }
  if (status == kAudioHardwareNoError) {
    setStarted(proc, true);
    queue_.post([this, weak = std::weak_ptr(proc)] {
      if (const ProcPtr started = weak.lock()) {
        started->startedAt = clock_.now();
        started->callsAtStart = started->slot->callCount();
        started->restarts = 0;
        watch(started, ++started->watchRound);
      }
    });
  }
  return status;
}

/// A start that succeeds says that the HAL has understood; the device runs a moment later, or not.
OSStatus IOProcs::startAndLook(AudioObjectID halDevice, ::AudioDeviceIOProcID procID,
                               double runningSeconds) {
  const OSStatus status = AudioDeviceStart(halDevice, procID);
  if (status != kAudioHardwareNoError) {
    return status;
  }
  if (waitUntil(clock_, runningSeconds, [&] { return mayBeRunning(halDevice); })) {
    return status;
  }
  AudioDeviceStop(halDevice, procID);
  return kAudioHardwareNotRunningError;
}

OSStatus IOProcs::stop(AudioObjectID device, AudioDeviceIOProcID procID) {
  const ProcPtr proc = find(device, procID);
  if (!proc) {
    return kAudioHardwareIllegalOperationError;
  }
  setStarted(proc, false);
  return proc->hal == nullptr ? kAudioHardwareNoError
                              : AudioDeviceStop(ids_.hal(device), proc->hal);
}

void IOProcs::setStarted(const ProcPtr& proc, bool isStarted) {
  const std::lock_guard lock(mutex_);
  proc->isStarted = isStarted;
}

bool IOProcs::isStarted(AudioObjectID device) const {
  const std::lock_guard lock(mutex_);
  return std::ranges::any_of(procs_, [device](const auto& entry) {
    return entry.second->device == device && entry.second->isStarted;
  });
}

void IOProcs::setFactors(AudioObjectID device, float left, float right) {
  const std::lock_guard lock(mutex_);
  for (const auto& [procID, proc] : procs_) {
    if (proc->device == device) {
      proc->slot->setFactors(left, right);
    }
  }
}

void IOProcs::closePaths(AudioObjectID device) {
  for (const auto& [procID, proc] : of(device)) {
    proc->slot->setPathOpen(false);
  }
}

void IOProcs::suspend(AudioObjectID device) {
  for (const auto& [procID, proc] : of(device)) {
    if (proc->hal != nullptr) {
      AudioDeviceStop(ids_.hal(device), proc->hal);
      AudioDeviceDestroyIOProcID(ids_.hal(device), std::exchange(proc->hal, nullptr));
    }
    // A call of the former device that was held up must not run beside those of the next one.
    proc->slot->renumber(proc->slot->droppedInputs());
  }
}

bool IOProcs::renew(AudioObjectID device, std::uint32_t droppedInputs, const Patience& patience) {
  bool areRenewed = true;
  for (const auto& [procID, proc] : of(device)) {
    bool wasStarted = false;
    {
      const std::lock_guard lock(mutex_);
      wasStarted = proc->isStarted;
    }
    proc->slot->renumber(droppedInputs);
    proc->hal = nullptr;
    areRenewed = areRenewed && makeAtHAL(*proc) == kAudioHardwareNoError &&
                 (!wasStarted || start(device, procID, patience) == kAudioHardwareNoError);
  }
  return areRenewed;
}

// The watch: main thread

/// Looks after a callback in its first seconds, and as long as it waits for sound. The real-time
/// thread must not tell anybody of what it has seen, so it is asked.
void IOProcs::watch(const std::weak_ptr<Proc>& watched, int round) {
  const ProcPtr proc = watched.lock();
  // Another start is looked after by a watch of its own.
  if (proc && proc->watchRound == round && lookAfter(*proc)) {
    queue_.postAfter(kWatchSeconds, [this, watched, round] {
      if (!watched.expired()) {
        watch(watched, round);
      }
    });
  }
}

/// Whether there is reason to look again.
bool IOProcs::lookAfter(Proc& proc) {
  {
    const std::lock_guard lock(mutex_);
    if (!proc.isStarted || proc.hal == nullptr) {
      return false;
    }
  }
  const bool isCalled = proc.slot->callCount() != proc.callsAtStart;
  if (!isCalled && proc.restarts < kMostRestarts &&
      clock_.now() - proc.startedAt >= kSilentDeviceSeconds) {
    restart(proc);
  }
  // Nobody is muted for a callback that has to be silent yet.
  if (!proc.slot->isPathOpen() && proc.slot->hasHeardSound() && proc.slot->hasFactors() &&
      onFirstSound(proc.device)) {
    proc.slot->setPathOpen(true);
  }
  return !proc.slot->isPathOpen() || (!isCalled && proc.restarts < kMostRestarts);
}

/// The device says that it runs and does not call: others found that a second start helps.
void IOProcs::restart(Proc& proc) {
  const AudioObjectID halDevice = ids_.hal(proc.device);
  AudioDeviceStop(halDevice, proc.hal);
  AudioDeviceStart(halDevice, proc.hal);
  proc.startedAt = clock_.now();
  ++proc.restarts;
}

}  // namespace orvelle::coreaudio
