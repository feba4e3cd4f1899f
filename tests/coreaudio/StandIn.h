// A stand-in for the HAL of macOS over a simulated world: as forgiving as the documentation, or as
// difficult as people have reported it, and strict with its caller.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/ThreadQueue.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle::coreaudio {

/// What the HAL was reported to do now and then.
struct Adversity {
  /// A fresh aggregate is listed, and answers "unknown property" to every question.
  double freshAggregatesAreUnknownSeconds = 0.0;
  /// It has no streams yet, counted from its creation.
  double streamsLagSeconds = 0.0;
  /// The streams of its taps come later still.
  double tapStreamsLagSeconds = 0.0;
  /// Called while one is listed, and its creation has not returned yet.
  std::function<void()> duringCreation = {};
  /// Called when a listener of the system object has been added, before the call returns.
  std::function<void(UInt32 selector)> whileListening = {};
  /// An aggregate that was destroyed is still listed.
  double destroyedAggregatesLingerSeconds = 0.0;
  /// Of each callback: so many first starts fail.
  int failingStarts = 0;
  /// Of each callback: so many first starts succeed, and the device does not run.
  int startsWithoutRunning = 0;
  /// From a start until the device says that it runs.
  double runningLagSeconds = 0.0;
  /// Of each callback: so many first starts succeed, the device says that it runs, and nobody is
  /// called.
  int startsWithoutCalls = 0;
  /// A driver answers the question for its decibels with an error of its own.
  bool tellsNoDecibels = false;
  /// Listeners and callbacks are called once more after their removal.
  bool callsLate = false;
  /// All listeners are called while a call that changes something has not returned yet.
  bool callsListenersDuringCalls = false;
  /// Nobody has allowed recording: taps deliver zeros.
  bool refusesRecording = false;
  /// Whether inputs may be read, and how often that has been asked for.
  CapturePermission microphone = CapturePermission::granted;
  int microphoneRequests = 0;
};

/// All that can be wished for at once without a change of what people hear.
Adversity hostile();

/// While it lives, the HAL's functions work on `world`. A fault of the caller fails the test that
/// runs: a call from a callback or a listener, an object that is leaked or released too often, a
/// wrong scope or size, unmaking in the wrong order, and what is left at the end.
///
/// The latest one that lives is the one in force. The world's clock is `queue`.
class StandIn {
 public:
  StandIn(SimulatedHardware& world, ManualQueue& queue);
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
  ~StandIn();

  Adversity adversity;

  /// Everything that its clients made is gone without a word, ids of before name other objects, and
  /// the listeners for it hear of the restart.
  void restartServer();

  /// The one in force.
  static StandIn& current();

  /// @name The HAL's functions
  /// @{
  Boolean hasProperty(::AudioObjectID object, const ::AudioObjectPropertyAddress& address);
  OSStatus isSettable(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                      Boolean& settable);
  OSStatus dataSize(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                    UInt32& byteSize);
  OSStatus data(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                UInt32 qualifierSize, const void* qualifier, UInt32& byteSize, void* data);
  OSStatus setData(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                   UInt32 byteSize, const void* data);
  OSStatus addListener(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                       ::AudioObjectPropertyListenerProc proc, void* clientData);
  OSStatus removeListener(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                          ::AudioObjectPropertyListenerProc proc, void* clientData);
  OSStatus createAggregate(CFDictionaryRef dictionary, ::AudioObjectID& device);
  OSStatus destroyAggregate(::AudioObjectID device);
  OSStatus createIOProc(::AudioObjectID device, ::AudioDeviceIOProc proc, void* clientData,
                        ::AudioDeviceIOProcID& procID);
  OSStatus destroyIOProc(::AudioObjectID device, ::AudioDeviceIOProcID procID);
  OSStatus start(::AudioObjectID device, ::AudioDeviceIOProcID procID);
  OSStatus stop(::AudioObjectID device, ::AudioDeviceIOProcID procID);
  OSStatus createTap(const std::vector<::AudioObjectID>& processes, bool isPrivate,
                     TapMuteBehavior muteBehavior, ::AudioObjectID& tap, std::string& uid);
  OSStatus setTapMuteBehavior(::AudioObjectID tap, TapMuteBehavior muteBehavior);
  OSStatus destroyTap(::AudioObjectID tap);
  /// @}

 private:
  struct Listener {
    ::AudioObjectID object = 0;
    ::AudioObjectPropertyAddress address{};
    ::AudioObjectPropertyListenerProc proc = nullptr;
    void* clientData = nullptr;
    ListenerToken worldToken = 0;  // 0: for the restart, of which the world knows nothing
  };
  struct IOProc;
  struct Aggregate {
    AggregateDescription description;
    double createdAt = 0.0;  // seconds of the queue
  };

  // StandInProperties.cpp
  [[nodiscard]] AudioObjectID worldID(::AudioObjectID hal) const;
  [[nodiscard]] ::AudioObjectID halID(AudioObjectID world) const;
  OSStatus read(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                PropertyValue& value);
  OSStatus readDecibels(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
                        PropertyValue& value);
  OSStatus deviceOfUID(UInt32 qualifierSize, const void* qualifier, UInt32& byteSize, void* data);
  [[nodiscard]] bool isUnknownYet(::AudioObjectID object);
  void lag(::AudioObjectID object, const ::AudioObjectPropertyAddress& address,
           PropertyValue& value);
  void addLingering(std::vector<AudioObjectID>& halDevices);
  OSStatus streamUsageSize(::AudioObjectID device, UInt32& byteSize);
  OSStatus streamUsage(::AudioObjectID device, UInt32& byteSize, void* data);
  OSStatus setStreamUsage(::AudioObjectID device, UInt32 byteSize, const void* data);
  void deliver(std::uint64_t key);
  void callElsewhere(const std::vector<Listener>& listeners);

  // StandInDevices.cpp
  std::shared_ptr<IOProc> find(::AudioObjectID device, ::AudioDeviceIOProcID procID);
  void callListenersDuringCall();
  void callLater(MainQueue::Job job);
  void checkMicrophone(const IOProc& proc) const;

  SimulatedHardware& world_;
  ManualQueue& queue_;
  StandIn* const former_;
  std::mutex mutex_;  // guards everything below, and is not held across calls of the world
  ::AudioObjectID idOffset_ = 40;
  std::uint64_t lastKey_ = 0;
  std::map<std::uint64_t, Listener> listeners_;
  std::map<std::uint64_t, std::shared_ptr<IOProc>> procs_;
  std::map<::AudioObjectID, Aggregate> aggregates_;
  std::map<::AudioObjectID, double> lingering_;  // until when it is listed
  std::map<::AudioObjectID, std::string> taps_;  // their uids
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
  std::mutex notificationMutex_;
  ThreadQueue notificationThread_;
};

/// Fails the test that runs.
void reportFault(const std::string& fault);
/// To be called first by every function of the platform.
void checkThread(const char* function);

/// Marks the calling thread, for as long as it lives, as one in which nothing may be called.
class ForbiddenZone {
 public:
  explicit ForbiddenZone(const char* what);
  ForbiddenZone(const ForbiddenZone&) = delete;
  ForbiddenZone& operator=(const ForbiddenZone&) = delete;
  ~ForbiddenZone();
};

/// What the Core Foundation of the stand-in tells of its objects.
CFStringRef newString(const std::string& text);
std::string stringText(CFTypeRef string);
AggregateDescription parseAggregate(CFDictionaryRef dictionary);
std::size_t livingObjects();

}  // namespace orvelle::coreaudio
