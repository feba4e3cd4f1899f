// Aggregate devices and the callbacks on them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/pipewire/GraphStream.h"
#include "orvelle/platform/pipewire/ProcessTaps.h"
#include "orvelle/platform/pipewire/Session.h"
#include "orvelle/platform/pipewire/TapLoudness.h"

namespace orvelle::pipewire {

/// An aggregate is no node: each started callback is a stream of its own that takes its input from
/// the member that is not the clock master, or from a tap, and gives its output to the master. A
/// master's own inputs are left alone, so that no monitor and no microphone can feed back. A tap is
/// read exactly while sound can flow from it to the master.
///
/// Session lock held in every call.
class AggregateDevices {
 public:
  AggregateDevices(Session& session, ProcessTaps& taps, const TapLoudness& loudness,
                   std::function<AudioObjectID()> nextID)
      : session_(session), taps_(taps), loudness_(loudness), nextID_(std::move(nextID)) {}
  AggregateDevices(const AggregateDevices&) = delete;
  AggregateDevices& operator=(const AggregateDevices&) = delete;
  ~AggregateDevices();

  OSStatus create(const AggregateDescription& description, AudioObjectID& aggregate);
  OSStatus destroy(AudioObjectID aggregate);

  OSStatus createIOProc(AudioObjectID aggregate, IOBlock block, AudioDeviceIOProcID& procID);
  OSStatus destroyIOProc(AudioObjectID aggregate, AudioDeviceIOProcID procID);
  /// Returns when sound can flow.
  OSStatus start(AudioObjectID aggregate, AudioDeviceIOProcID procID);
  OSStatus stop(AudioObjectID aggregate, AudioDeviceIOProcID procID);

  /// The description; null for an unknown id.
  [[nodiscard]] const AggregateDescription* description(AudioObjectID aggregate) const;
  [[nodiscard]] bool isRunning(AudioObjectID aggregate) const;
  [[nodiscard]] bool hasMember(std::string_view uid) const;

  /// To be called after every change of the session's objects.
  void linkUp();
  /// The connection is gone: `linkUp` makes the streams anew on the next one.
  void drop();
  /// To be called after every change of the session, before anybody hears of it.
  void followLoudness();

 private:
  struct Proc {
    IOBlock block;
    std::unique_ptr<GraphStream> stream;
    bool isStarted = false;  ///< between `start` and `stop`, with or without a stream
  };
  struct Aggregate {
    AggregateDescription description;
    std::map<AudioDeviceIOProcID, Proc> procs;
  };

  [[nodiscard]] bool isAnotherInstanceRunning(const AggregateDescription& description) const;
  Proc* find(AudioObjectID aggregate, AudioDeviceIOProcID procID);
  [[nodiscard]] std::string inputOf(const AggregateDescription& description) const;
  [[nodiscard]] std::unique_ptr<GraphStream> makeStream(const AggregateDescription& description,
                                                        const Proc& proc);
  void end(const AggregateDescription& description, Proc& proc);
  void updateTaps();
  void followLoudness(const AggregateDescription& description, GraphStream& stream) const;
  [[nodiscard]] bool areMembersThere(const AggregateDescription& description) const;

  Session& session_;
  ProcessTaps& taps_;
  const TapLoudness& loudness_;
  std::function<AudioObjectID()> nextID_;
  std::map<AudioObjectID, Aggregate> aggregates_;
  AudioDeviceIOProcID lastProcID_ = 0;
};

}  // namespace orvelle::pipewire
