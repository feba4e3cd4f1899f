// Everything that can be made to go wrong in a simulated world, and the order in which it does.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// The calls of the hardware interface.
enum class CallKind : std::uint8_t {
  hasProperty,
  isPropertySettable,
  getPropertyDataSize,
  getPropertyData,
  setPropertyData,
  addPropertyListener,
  removePropertyListener,
  createAggregateDevice,
  destroyAggregateDevice,
  createIOProcID,
  destroyIOProcID,
  startDevice,
  stopDevice,
  createProcessTap,
  destroyProcessTap,
};

/// One call, as faults and the log see it.
struct CallTarget {
  CallKind kind = CallKind::hasProperty;
  AudioObjectID object = kAudioObjectUnknown;
  std::uint32_t selector = 0;  // property and listener calls only
};

/// What happens to a call that a fault hits.
enum class FaultEffect : std::uint8_t {
  fail,            ///< the status comes back and nothing was done (hasProperty: false)
  failAfterwards,  ///< the status comes back although it was done; creations are not
  ignore,          ///< success comes back and nothing was done; sets only
  delay,           ///< success comes back and it is done later; sets only
};

/// Hits the calls that match every given field: after the first `skip` of them, the next `count`.
struct Fault {
  static constexpr std::uint64_t always = std::numeric_limits<std::uint64_t>::max();

  std::optional<CallKind> kind = std::nullopt;
  std::optional<std::uint32_t> selector = std::nullopt;
  std::optional<AudioObjectID> object = std::nullopt;
  std::uint64_t skip = 0;
  std::uint64_t count = always;
  FaultEffect effect = FaultEffect::fail;
  OSStatus status = kAudioHardwareUnspecifiedError;
  double delaySeconds = 0.0;  // effect delay only
};

/// What happens to the news of a change on its way to the listeners.
struct ListenerFault {
  bool isLost = false;
  double delaySeconds = 0.0;
  std::uint64_t count = 1;  ///< changes to hit, watched or not
};

/// The faults in force, oldest first. Not thread-safe: its owner locks.
class FaultPlan {
 public:
  void add(const Fault& fault) { faults_.push_back(fault); }
  void addListenerFault(const ListenerFault& fault) { listenerFaults_.push_back(fault); }
  void clear();

  /// The fault that hits this call. Every fault that matches counts it.
  std::optional<Fault> judge(const CallTarget& call);
  std::optional<ListenerFault> judgeNotification();

 private:
  std::vector<Fault> faults_;
  std::vector<ListenerFault> listenerFaults_;
};

}  // namespace orvelle
