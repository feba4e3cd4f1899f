// The aggregates of this process: made, waited for, left out of what the layers above see, unmade.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/TapGovernor.h"
#include "orvelle/platform/coreaudio/AggregateLayout.h"
#include "orvelle/platform/coreaudio/IOProcs.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"
#include "orvelle/platform/coreaudio/ProcessTaps.h"

namespace orvelle::coreaudio {

/// Any thread but the real-time one. No lock is held across a call of the HAL.
class AggregateDevices {
 public:
  AggregateDevices(ObjectIDs& ids, IOProcs& procs, ProcessTaps& taps, Clock& clock)
      : ids_(ids), procs_(procs), taps_(taps), clock_(clock) {}
  AggregateDevices(const AggregateDevices&) = delete;
  AggregateDevices& operator=(const AggregateDevices&) = delete;
  ~AggregateDevices();

  /// Returns when the aggregate answers and has the streams of its parts.
  OSStatus create(const AggregateDescription& description, AudioObjectID& aggregate);
  OSStatus destroy(AudioObjectID aggregate);
  /// As IOProcs does it, for any device.
  OSStatus createIOProc(AudioObjectID device, IOBlock block, AudioDeviceIOProcID& procID);
  OSStatus startIOProc(AudioObjectID device, AudioDeviceIOProcID procID);

  /// Takes our aggregates out of a list of the HAL's ids. They come as news while they are made,
  /// answer to no question for a while, and stay listed after they were unmade: by their uid alone
  /// nobody above could tell them from a new device.
  void removeOwn(std::vector<AudioObjectID>& halDevices);
  /// Whether one is being made, whose id nobody knows yet.
  [[nodiscard]] bool isCreating() const;

  /// Of those with taps.
  [[nodiscard]] std::vector<AudioObjectID> tapReaders() const;
  [[nodiscard]] AggregateOutline outline(AudioObjectID aggregate) const;
  [[nodiscard]] std::vector<AggregateOutline> outlines() const;
  /// Sound has arrived at an aggregate's taps: they begin to mute. False where one may not.
  bool muteTaps(AudioObjectID aggregate);
  /// The tap is about to end: what reads it falls silent.
  void silenceReaders(const std::string& tapUID);
  /// The audio server began anew, and none of them exists any more. Those that read taps are made
  /// again by `renewTapReaders`; the others are up to the layers above. Main thread.
  void forgetAll();
  /// Takes tap readers apart whose master has gone, so that nobody is muted for them, and makes
  /// those again whose taps and master are there again. To be called after every change of the
  /// devices. Main thread, which it may hold up for some seconds for each reader: two until the
  /// aggregate is ready, two until it runs. What failed is tried again once other devices are
  /// there.
  void renewTapReaders();

 private:
  struct Aggregate {
    AggregateDescription description;
    AggregateLayout layout;
    AudioObjectID loopback = kAudioObjectUnknown;  // our id, which a restart does not reuse
  };
  /// An aggregate whose id nobody knows yet.
  struct Creation {
    std::string uid;
    std::vector<AudioObjectID> listedBefore;  // ids of the HAL's
  };
  /// What a tap reader was to be made again in; ids of the HAL's.
  struct Surroundings {
    AudioObjectID master = kAudioObjectUnknown;
    std::vector<AudioObjectID> devices;  // without our own

    bool operator==(const Surroundings&) const = default;
  };

  [[nodiscard]] bool acquireTaps(const AggregateDescription& description,
                                 std::vector<std::string>& uids);
  void releaseTaps(const AggregateDescription& description);
  OSStatus unmake(AudioObjectID hal);
  void suspend(AudioObjectID id);
  void renewUnlessInVain(AudioObjectID id, const Aggregate& reader, AudioObjectID master);
  bool renew(AudioObjectID id, const Aggregate& reader);
  void removeThoseBeingCreated(std::vector<AudioObjectID>& halDevices) const;
  OSStatus make(const AggregateDescription& description, const AggregateLayout& layout,
                const std::vector<std::string>& tapUIDs, AudioObjectID& hal);
  [[nodiscard]] std::shared_ptr<const Aggregate> find(AudioObjectID aggregate) const;
  bool replace(AudioObjectID id, Aggregate aggregate);
  [[nodiscard]] AggregateOutline outlineOf(AudioObjectID id, const Aggregate& aggregate) const;

  ObjectIDs& ids_;
  IOProcs& procs_;
  ProcessTaps& taps_;
  Clock& clock_;
  std::map<AudioObjectID, Surroundings> failedRenewals_;  // by our id, main thread only
  mutable std::mutex mutex_;                              // guards everything below
  std::map<AudioObjectID, std::shared_ptr<const Aggregate>> aggregates_;  // by our id
  /// By the HAL's id: whether it has been unmade. Those stay in here as long as they are listed.
  std::map<AudioObjectID, bool> own_;
  std::list<Creation> creations_;
};

}  // namespace orvelle::coreaudio
