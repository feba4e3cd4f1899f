// Callbacks on the HAL's devices: making and unmaking, starts that fail or come to nothing.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "orvelle/platform/Clock.h"
#include "orvelle/platform/MainQueue.h"
#include "orvelle/platform/coreaudio/CallbackSlot.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"

namespace orvelle::coreaudio {

/// Any thread but the real-time one. No lock is held across a call of the HAL. `device` is our id.
class IOProcs {
 public:
  IOProcs(const ObjectIDs& ids, MainQueue& queue, Clock& clock);
  IOProcs(const IOProcs&) = delete;
  IOProcs& operator=(const IOProcs&) = delete;
  ~IOProcs();

  OSStatus create(AudioObjectID device, CallbackSettings settings, AudioDeviceIOProcID& procID);
  OSStatus destroy(AudioObjectID device, AudioDeviceIOProcID procID);
  /// How much is tried until a start counts as failed.
  struct Patience {
    int attempts = 1;
    double runningSeconds = 0.0;  ///< from a start that succeeds until the device says that it runs
  };
  /// Returns when the device runs, or has been stopped again.
  OSStatus start(AudioObjectID device, AudioDeviceIOProcID procID, const Patience& patience);
  OSStatus stop(AudioObjectID device, AudioDeviceIOProcID procID);
  /// As `destroy` for each, in the order that the HAL asks for.
  void destroyAllOf(AudioObjectID device);

  [[nodiscard]] bool isStarted(AudioObjectID device) const;
  void setFactors(AudioObjectID device, float left, float right);
  /// The device's callbacks are silent from now on.
  void closePaths(AudioObjectID device);
  /// The device is about to go at the HAL and to be made again: its callbacks end there, and are
  /// known here as they were.
  void suspend(AudioObjectID device);
  /// The device is another object now, with other inputs to be dropped (CallbackSettings):
  /// callbacks are made again, and started where they had been. False where that failed: they then
  /// wait to be suspended, and to be renewed another time.
  bool renew(AudioObjectID device, std::uint32_t droppedInputs, const Patience& patience);

  /// Asked on the main thread when sound has arrived at a device whose callbacks wait for it;
  /// whether they may be heard now.
  std::function<bool(AudioObjectID device)> onFirstSound;

 private:
  struct Proc {
    AudioObjectID device = kAudioObjectUnknown;
    ::AudioDeviceIOProcID hal = nullptr;  // null while the device is away
    CallbackSlot::Handle slot;
    bool isStarted = false;
    // Of the watch, main thread only.
    std::uint64_t callsAtStart = 0;
    double startedAt = 0.0;  // seconds of the clock
    int restarts = 0;
    int watchRound = 0;  // of the start that is watched
  };
  using ProcPtr = std::shared_ptr<Proc>;

  [[nodiscard]] ProcPtr find(AudioObjectID device, AudioDeviceIOProcID procID) const;
  [[nodiscard]] std::vector<std::pair<AudioDeviceIOProcID, ProcPtr>> of(AudioObjectID device) const;
  OSStatus makeAtHAL(Proc& proc) const;
  OSStatus startAndLook(AudioObjectID halDevice, ::AudioDeviceIOProcID procID,
                        double runningSeconds);
  void setStarted(const ProcPtr& proc, bool isStarted);
  void watch(const std::weak_ptr<Proc>& watched, int round);
  bool lookAfter(Proc& proc);
  void restart(Proc& proc);

  const ObjectIDs& ids_;
  MainQueue& queue_;
  Clock& clock_;
  mutable std::mutex mutex_;  // guards the map, the last id and every `isStarted`
  AudioDeviceIOProcID lastID_ = 0;
  std::map<AudioDeviceIOProcID, ProcPtr> procs_;
};

}  // namespace orvelle::coreaudio
