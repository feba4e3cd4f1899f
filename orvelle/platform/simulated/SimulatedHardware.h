// Audio hardware that exists in memory: any device set, faults on demand, callbacks driven by hand,
// and ears at every output.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/ListenerRegistry.h"
#include "orvelle/platform/MainQueue.h"
#include "orvelle/platform/TapGovernor.h"
#include "orvelle/platform/simulated/FaultPlan.h"
#include "orvelle/platform/simulated/SimulatedDevice.h"

namespace orvelle {

class ManualQueue;

/// One call that asked for a change, as it was answered.
struct CallRecord {
  CallTarget target;
  OSStatus status = kAudioHardwareNoError;
  /// For people and comparisons: "default output = speakers", "volume 0 of speakers = 1.00".
  std::string text;
};

/// A world of devices and programs behind the hardware interface.
///
/// The interface may be called from any thread, and so may everything else here; a test that wants
/// the same run every time uses one. Private aggregates appear in the device list of this process,
/// as they do on the HAL.
class SimulatedHardware : public AudioHardware {
 public:
  /// Delayed effects take place in virtual time, also while the main thread sleeps.
  explicit SimulatedHardware(ManualQueue& queue);
  /// For a demonstration in real time: delayed effects wait for the main thread.
  explicit SimulatedHardware(MainQueue& queue);
  ~SimulatedHardware() override;

  /// @name The hardware interface
  /// @{
  [[nodiscard]] bool hasProperty(AudioObjectID object, const PropertyAddress& address) override;
  OSStatus isPropertySettable(AudioObjectID object, const PropertyAddress& address,
                              bool& settable) override;
  OSStatus getPropertyDataSize(AudioObjectID object, const PropertyAddress& address,
                               std::uint32_t& byteSize) override;
  OSStatus getPropertyData(AudioObjectID object, const PropertyAddress& address,
                           PropertyValue& value) override;
  OSStatus setPropertyData(AudioObjectID object, const PropertyAddress& address,
                           const PropertyValue& value) override;
  OSStatus addPropertyListener(AudioObjectID object, const PropertyAddress& address,
                               PropertyListener listener, ListenerToken& token) override;
  OSStatus removePropertyListener(ListenerToken token) override;
  OSStatus createAggregateDevice(const AggregateDescription& description,
                                 AudioObjectID& aggregate) override;
  OSStatus destroyAggregateDevice(AudioObjectID aggregate) override;
  OSStatus createIOProcID(AudioObjectID device, IOBlock block,
                          AudioDeviceIOProcID& procID) override;
  OSStatus destroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) override;
  OSStatus startDevice(AudioObjectID device, AudioDeviceIOProcID procID) override;
  OSStatus stopDevice(AudioObjectID device, AudioDeviceIOProcID procID) override;
  OSStatus createProcessTap(const TapDescription& description, AudioObjectID& tap) override;
  OSStatus destroyProcessTap(AudioObjectID tap) override;
  /// @}

  /// @name The world: what people and other programs do
  /// @{
  /// The new device's id. The first device with outputs becomes the default output.
  AudioObjectID plug(const DeviceDescription& device);
  /// The device as it stood, to be plugged in again. An aggregate loses the member for good, unless
  /// it reads taps and the member is its master. Where the device was the default output, the first
  /// output without inputs is chosen, or else any output.
  DeviceDescription unplug(const std::string& uid);
  void chooseDefaultOutput(const std::string& uid);
  void setVolume(const std::string& uid, float scalar);
  void setMute(const std::string& uid, bool mute);
  AudioObjectID launch(const ProcessDescription& process);
  void setPlaying(AudioObjectID process, bool isPlaying);
  void quitProcess(AudioObjectID process);
  /// A tap's owner changes what its processes are heard of on their normal path.
  OSStatus setTapMuteBehavior(AudioObjectID tap, TapMuteBehavior muteBehavior);
  /// A bare audio system knows nothing of loopbacks: who taps has to see to the volume.
  void leaveTapLoudnessToOthers();
  /// This program itself ends without a word: aggregates, callbacks, taps and listeners vanish with
  /// it at once. Properties stay as they are.
  void endClient();
  /// @}

  /// @name Sound
  /// @{
  /// One I/O cycle of every device: programs play, started callbacks run on this thread, outputs
  /// sound. A callback's own calls to this interface are forbidden.
  void runCycle(std::uint32_t frames);
  /// What a listener got from the output in the latest cycle, interleaved, after its volume and
  /// mute. Empty for a loopback: nobody hears it.
  [[nodiscard]] std::vector<float> heard(const std::string& uid) const;
  [[nodiscard]] float heardPeak(const std::string& uid) const;
  /// Callbacks that have run so far.
  [[nodiscard]] std::uint64_t callbackCount() const { return callbackCount_; }
  /// @}

  /// @name Questions of tests
  /// @{
  /// 0 and empty when there is none.
  [[nodiscard]] AudioObjectID id(const std::string& uid) const;
  [[nodiscard]] std::string defaultOutputUID() const;
  /// The device as it stands; an empty one when there is none.
  [[nodiscard]] DeviceDescription device(const std::string& uid) const;
  [[nodiscard]] std::size_t aggregateCount() const;
  [[nodiscard]] std::size_t ioProcCount() const;
  [[nodiscard]] std::size_t tapCount() const;
  [[nodiscard]] std::size_t listenerCount() const;
  /// @}

  /// @name Faults and log
  /// @{
  /// Throws std::invalid_argument for an effect that only sets can have.
  void inject(const Fault& fault);
  void injectListenerFault(const ListenerFault& fault);
  void clearFaults();
  /// Calls of the interface so far, questions included.
  [[nodiscard]] std::uint64_t callCount() const { return callCount_; }
  [[nodiscard]] std::vector<CallRecord> log() const;
  /// The log's texts; failed calls end in " -> " and the status.
  [[nodiscard]] std::vector<std::string> logTexts() const;
  void clearLog();
  /// Called before every call of the interface that asks for a change, on the calling thread.
  /// False: the call fails, does nothing and is no part of the log, as one of a program that has
  /// ended.
  std::function<bool()> beforeChange;
  /// Called after every call of the interface that asked for a change, on the calling thread.
  std::function<void()> afterChange;
  /// @}

 private:
  struct Device;
  struct Process;
  struct Tap;
  struct IOProc;
  struct PendingCallback;

  using Later = std::function<void(double seconds, MainQueue::Job job)>;
  using PropertyResult = std::pair<OSStatus, PropertyValue>;

  SimulatedHardware(MainQueue& queue, Later later);  // what the two others share

  // SimulatedHardware.cpp: calls, faults, log.
  OSStatus change(const CallTarget& target, const std::string& text,
                  const std::function<OSStatus()>& action,
                  const std::function<OSStatus(double)>& delayedAction = nullptr);
  OSStatus setLater(AudioObjectID object, const PropertyAddress& address,
                    const PropertyValue& value, double delaySeconds);
  bool failsQuestion(CallKind kind, AudioObjectID object, const PropertyAddress& address,
                     OSStatus& status);
  OSStatus resolveMembers(const AggregateDescription& description, Device& aggregate);
  OSStatus findProc(AudioObjectID device, AudioDeviceIOProcID procID, IOProc*& proc);
  std::vector<std::shared_ptr<IOProc>> takeProcsOf(AudioObjectID device);

  // SimulatedProperties.cpp; the lock is held.
  PropertyResult read(AudioObjectID object, const PropertyAddress& address) const;
  PropertyResult readSystem(const PropertyAddress& address) const;
  PropertyResult readDevice(const Device& device, const PropertyAddress& address) const;
  static PropertyResult readLevel(const DeviceDescription& description,
                                  const PropertyAddress& address);
  static PropertyResult readProcess(const Process& process, const PropertyAddress& address);
  bool isSettable(AudioObjectID object, const PropertyAddress& address) const;
  OSStatus write(AudioObjectID object, const PropertyAddress& address, const PropertyValue& value);
  static OSStatus writeDevice(Device& device, const PropertyAddress& address,
                              const PropertyValue& value);
  OSStatus putDefaultOutput(AudioObjectID device);
  bool isRunning(const Device& device) const;
  StreamConfiguration streams(const Device& device, std::uint32_t scope) const;
  std::string describe(AudioObjectID object) const;
  std::string describe(AudioObjectID object, const PropertyAddress& address,
                       const PropertyValue& value) const;
  void notify(AudioObjectID object, const PropertyAddress& address);

  // SimulatedWorld.cpp; the lock is held.
  Device* findDevice(const std::string& uid);
  const Device* findDevice(const std::string& uid) const;
  void chooseAnotherDefault();
  void returnToTapReaders(const Device& device);

  // SimulatedCycle.cpp.
  void playPrograms(std::uint32_t frames);
  bool isSilencedByTap(AudioObjectID process) const;
  bool isTapRead(AudioObjectID tap) const;
  std::vector<PendingCallback> prepareCallbacks(std::uint32_t frames);
  void collectInputs(const Device& device, std::uint32_t frames, PendingCallback& callback) const;
  std::vector<float> tapSamples(const Tap& tap, std::uint32_t frames) const;
  const Device* governingLoopback(const Device& aggregate) const;
  AggregateOutline outline(const Device& aggregate) const;
  const Device* loopbackIn(const Device& aggregate) const;
  bool isStarted(const Device& device) const;
  void applyGovernor(const Device& aggregate, PendingCallback& callback) const;
  void mixOutputs(const Device& device, const PendingCallback& callback, std::uint32_t frames);
  void finishCycle(std::uint32_t frames);
  std::vector<AudioObjectID> membersOf(const Device& device) const;

  const Later later_;

  mutable std::mutex mutex_;  // guards everything below; never held while foreign code runs
  std::mutex cycleMutex_;     // one cycle at a time; taken before mutex_
  AudioObjectID lastObject_ = kAudioObjectSystemObject;
  std::uint64_t lastProc_ = 0;
  AudioObjectID defaultOutput_ = kAudioObjectUnknown;
  // Ordered by id or token, which is the order of appearance.
  std::map<AudioObjectID, Device> devices_;
  std::optional<std::pair<AudioObjectID, DeviceDescription>> lostLoopback_;
  std::map<AudioObjectID, Process> processes_;
  std::map<AudioObjectID, Tap> taps_;
  std::map<AudioDeviceIOProcID, std::shared_ptr<IOProc>> procs_;
  ListenerRegistry listeners_;
  std::size_t listenerCount_ = 0;
  std::int64_t worldFrame_ = 0;
  bool governsTaps_ = true;
  /// What was last asked of a property: a delayed set gives way to a later one.
  std::map<std::pair<AudioObjectID, PropertyAddress>, PropertyValue> latestSets_;
  FaultPlan faults_;
  std::vector<CallRecord> log_;
  std::atomic<std::uint64_t> callCount_{0};
  std::atomic<std::uint64_t> callbackCount_{0};
  /// Delayed effects hold it weakly: they may come due after the world's end.
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle
