#include "tests/coreaudio/StandIn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/coreaudio/StandInIOProc.h"

namespace orvelle::coreaudio {

namespace {

StandIn* newest = nullptr;
thread_local const char* forbiddenZone = nullptr;

}  // namespace

Adversity hostile() {
  Adversity adversity;
  adversity.freshAggregatesAreUnknownSeconds = 0.05;
  adversity.streamsLagSeconds = 0.08;
  adversity.destroyedAggregatesLingerSeconds = 0.1;
  adversity.callsLate = true;
  adversity.callsListenersDuringCalls = true;
  return adversity;
}

void reportFault(const std::string& fault) {
  ADD_FAILURE() << "fault of the HAL's caller: " << fault;
}

void checkThread(const char* function) {
  if (forbiddenZone != nullptr) {
    reportFault(std::string(function) + " is called from " + forbiddenZone);
  }
}

ForbiddenZone::ForbiddenZone(const char* what) {
  forbiddenZone = what;
}

ForbiddenZone::~ForbiddenZone() {
  forbiddenZone = nullptr;
}

StandIn::StandIn(SimulatedHardware& world, ManualQueue& queue)
    : world_(world), queue_(queue), former_(newest) {
  newest = this;
  world.leaveTapLoudnessToOthers();
}

StandIn::~StandIn() {
  EXPECT_EQ(listeners_.size(), 0U) << "listeners that nobody has removed";
  EXPECT_EQ(procs_.size(), 0U) << "callbacks that nobody has destroyed";
  EXPECT_EQ(aggregates_.size(), 0U) << "aggregates that nobody has destroyed";
  EXPECT_EQ(taps_.size(), 0U) << "taps that nobody has destroyed";
  EXPECT_EQ(livingObjects(), 0U) << "Core Foundation objects that nobody has released";
  newest = former_;
}

StandIn& StandIn::current() {
  return *newest;
}

/// Calls of the HAL's own thread. The caller waits for them: where they wait for a lock that the
/// caller holds, neither would go on.
void StandIn::callElsewhere(const std::vector<Listener>& listeners) {
  const std::lock_guard lock(notificationMutex_);
  notificationThread_.run([&listeners] {
    const ForbiddenZone zone("a listener");
    for (const Listener& listener : listeners) {
      listener.proc(listener.object, 1, &listener.address, listener.clientData);
    }
  });
  constexpr double longestSeconds = 10.0;
  if (!notificationThread_.wait(longestSeconds)) {
    reportFault("a lock that a listener needs is held across a call");
    std::abort();
  }
}

void StandIn::deliver(std::uint64_t key) {
  Listener listener;
  {
    const std::lock_guard lock(mutex_);
    const auto found = listeners_.find(key);
    if (found == listeners_.end()) {
      return;
    }
    listener = found->second;
  }
  callElsewhere({listener});
}

void StandIn::callListenersDuringCall() {
  if (!adversity.callsListenersDuringCalls) {
    return;
  }
  std::vector<Listener> all;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [key, listener] : listeners_) {
      if (listener.worldToken != 0) {
        all.push_back(listener);
      }
    }
  }
  callElsewhere(all);
}

void StandIn::callLater(MainQueue::Job job) {
  queue_.happenAfter(0.01, [job = std::move(job), life = std::weak_ptr(life_)] {
    if (!life.expired()) {
      job();
    }
  });
}

OSStatus StandIn::addListener(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                              ::AudioObjectPropertyListenerProc proc, void* clientData) {
  std::uint64_t key = 0;
  {
    const std::lock_guard lock(mutex_);
    key = ++lastKey_;
  }
  Listener listener{object, address, proc, clientData, 0};
  OSStatus status = kAudioHardwareNoError;
  if (address.mSelector != ::kAudioHardwarePropertyServiceRestarted) {
    status = world_.addPropertyListener(
        worldID(object), {address.mSelector, address.mScope, address.mElement},
        [this, key, life = std::weak_ptr(life_)] {
          if (!life.expired()) {
            deliver(key);
          }
        },
        listener.worldToken);
  }
  if (status == kAudioHardwareNoError) {
    const std::lock_guard lock(mutex_);
    listeners_[key] = listener;
  }
  if (adversity.whileListening && object == kAudioObjectSystemObject) {
    adversity.whileListening(address.mSelector);
  }
  return status;
}

OSStatus StandIn::removeListener(::AudioObjectID object,
                                 const ::AudioObjectPropertyAddress& address,
                                 ::AudioObjectPropertyListenerProc proc, void* clientData) {
  Listener removed;
  {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if(listeners_, [&](const auto& keyed) {
      const Listener& listener = keyed.second;
      return listener.object == object && listener.address.mSelector == address.mSelector &&
             listener.address.mScope == address.mScope &&
             listener.address.mElement == address.mElement && listener.proc == proc &&
             listener.clientData == clientData;
    });
    if (found == listeners_.end()) {
      reportFault("a listener is removed that was not added like that");
      return kAudioHardwareIllegalOperationError;
    }
    removed = found->second;
    listeners_.erase(found);
  }
  if (removed.worldToken != 0) {
    world_.removePropertyListener(removed.worldToken);
  }
  if (adversity.callsLate) {
    callLater([this, removed] { callElsewhere({removed}); });
  }
  return kAudioHardwareNoError;
}

void StandIn::restartServer() {
  std::vector<Listener> restartListeners;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [key, listener] : listeners_) {
      if (listener.address.mSelector == ::kAudioHardwarePropertyServiceRestarted) {
        restartListeners.push_back(listener);
      }
    }
    listeners_.clear();
    procs_.clear();
    aggregates_.clear();
    lingering_.clear();
    taps_.clear();
    --idOffset_;  // each id is another object's now
  }
  world_.endClient();
  callElsewhere(restartListeners);
}

}  // namespace orvelle::coreaudio
