// How loud an application that is played past the loopback may be.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/MainQueue.h"
#include "orvelle/platform/coreaudio/AggregateDevices.h"
#include "orvelle/platform/coreaudio/HALListeners.h"
#include "orvelle/platform/coreaudio/IOProcs.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"

namespace orvelle::coreaudio {

/// A loopback driver applies its volume to what passes through it, and a tap passes it by. So the
/// callbacks of tap readers apply it themselves, as `TapGovernor` has the rule. Private aggregates
/// of other processes cannot be seen; their boosts show by the default output alone.
class TapLoudness {
 public:
  TapLoudness(ObjectIDs& ids, HALListeners& listeners, const AggregateDevices& aggregates,
              IOProcs& procs, MainQueue& queue)
      : ids_(ids), listeners_(listeners), aggregates_(aggregates), procs_(procs), queue_(queue) {}
  TapLoudness(const TapLoudness&) = delete;
  TapLoudness& operator=(const TapLoudness&) = delete;
  ~TapLoudness() = default;

  /// Reads how things stand and sets the callbacks' factors. Any thread but the real-time one; when
  /// it has returned, what was changed before the call counts; where that could not be told, what
  /// held before holds on, until a later look on the main thread can.
  void update();
  /// The same, and from now on listens to whatever may change it. Main thread.
  void follow();

 private:
  struct Factors {
    float left = 1.0F;
    float right = 1.0F;
  };
  using Property = std::pair<AudioObjectID, PropertyAddress>;

  void lookAgainSoon();
  [[nodiscard]] std::optional<AudioObjectID> governor(AudioObjectID reader) const;
  [[nodiscard]] std::optional<AudioObjectID> defaultLoopback() const;
  [[nodiscard]] std::optional<Factors> factorsAt(AudioObjectID reader) const;

  ObjectIDs& ids_;
  HALListeners& listeners_;
  const AggregateDevices& aggregates_;
  IOProcs& procs_;
  MainQueue& queue_;
  /// Updates may overtake each other; one that began to read earlier sets nothing any more.
  std::atomic<std::uint64_t> lastTicket_{0};
  std::mutex mutex_;
  std::uint64_t appliedTicket_ = 0;                    // guarded by the lock
  std::map<Property, HALListeners::WatchID> watched_;  // main thread only
  std::atomic<bool> isLookPending_{false};
  /// Posted jobs hold it weakly: they may come due after the end.
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle::coreaudio
