// Aggregate devices and the callbacks on them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/pipewire/GraphStream.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// An aggregate is no node: each started callback is a stream of its own that takes its input from
/// the member that is not the clock master and gives its output to the master. A master's own
/// inputs are left alone, so that no monitor and no microphone can feed back.
///
/// Session lock held in every call.
class AggregateDevices {
 public:
  AggregateDevices(Session& session, std::function<AudioObjectID()> nextID)
      : session_(session), nextID_(std::move(nextID)) {}

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

 private:
  struct Proc {
    IOBlock block;
    std::unique_ptr<GraphStream> stream;
  };
  struct Aggregate {
    AggregateDescription description;
    std::map<AudioDeviceIOProcID, Proc> procs;
  };

  [[nodiscard]] bool isAnotherInstanceRunning(const AggregateDescription& description) const;
  Proc* find(AudioObjectID aggregate, AudioDeviceIOProcID procID);

  Session& session_;
  std::function<AudioObjectID()> nextID_;
  std::map<AudioObjectID, Aggregate> aggregates_;
  AudioDeviceIOProcID lastProcID_ = 0;
};

}  // namespace orvelle::pipewire
