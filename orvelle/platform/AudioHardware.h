// The one door to audio hardware. Everything above it is written once; below it stand the back
// ends: simulated, PipeWire and CoreAudio.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// One member of an aggregate device.
struct SubDevice {
  std::string uid;
  bool driftCompensation = false;
};

/// One process tap of an aggregate device, named by its description's UUID.
struct SubTap {
  std::string uid;
  bool driftCompensation = false;
};

/// A device to be made of others. Its input is what its members and taps deliver, its first output
/// buffer is the first member's output.
struct AggregateDescription {
  std::string name;
  std::string uid;
  std::vector<SubDevice> subdevices;
  std::string master;  ///< uid of the member whose clock drives the callbacks
  bool isPrivate = true;
  std::vector<SubTap> taps;
  bool tapAutoStart = false;
};

/// What a tapped process's normal path does meanwhile.
enum class TapMuteBehavior : std::uint8_t { unmuted = 0, muted = 1, mutedWhenTapped = 2 };

/// What the user has answered when the system asked whether this program may receive sound.
enum class CapturePermission : std::uint8_t { granted, undecided, refused };

/// A stereo mixdown of what some processes play.
struct TapDescription {
  std::vector<AudioObjectID> processes;
  std::string uuid;
  bool isPrivate = true;
  TapMuteBehavior muteBehavior = TapMuteBehavior::unmuted;
};

/// Called once per I/O cycle on the real-time thread. Input buffers are read only; the callee
/// writes output buffers through mData. Must not block, allocate or enter the system.
using IOBlock = std::function<void(AudioBufferList input, AudioBufferList output)>;

/// Called on the main queue after a property has changed. Says neither what it was nor what it is.
using PropertyListener = std::function<void()>;

/// Names one listener registration. 0 means none.
using ListenerToken = std::uint64_t;

/// Access to audio hardware.
///
/// Calls may come from any thread but the real-time one. None throws; each returns a status, and
/// out-parameters are written on success only.
class AudioHardware {
 public:
  AudioHardware() = default;
  AudioHardware(const AudioHardware&) = delete;
  AudioHardware& operator=(const AudioHardware&) = delete;
  virtual ~AudioHardware() = default;

  /// @name Properties
  /// A loopback that was lost may go on telling its last volume and mute under its id.
  /// @{
  [[nodiscard]] virtual bool hasProperty(AudioObjectID object, const PropertyAddress& address) = 0;
  virtual OSStatus isPropertySettable(AudioObjectID object, const PropertyAddress& address,
                                      bool& settable) = 0;
  /// Size of the value in bytes as the HAL counts it (4 per id, 16 + 8 header per buffer).
  virtual OSStatus getPropertyDataSize(AudioObjectID object, const PropertyAddress& address,
                                       std::uint32_t& byteSize) = 0;
  virtual OSStatus getPropertyData(AudioObjectID object, const PropertyAddress& address,
                                   PropertyValue& value) = 0;
  /// The alternative of `value` must be the one that the selector is documented with.
  virtual OSStatus setPropertyData(AudioObjectID object, const PropertyAddress& address,
                                   const PropertyValue& value) = 0;

  /// Registers `listener`; every registration is called for each change (changes close together
  /// may be reported once), always on the main queue.
  virtual OSStatus addPropertyListener(AudioObjectID object, const PropertyAddress& address,
                                       PropertyListener listener, ListenerToken& token) = 0;
  /// Ends the registration. Called on the main thread, nothing arrives after it returned success;
  /// after a failure the listener may still be called.
  virtual OSStatus removePropertyListener(ListenerToken token) = 0;
  /// @}

  /// @name Aggregate devices
  /// @{
  virtual OSStatus createAggregateDevice(const AggregateDescription& description,
                                         AudioObjectID& aggregate) = 0;
  virtual OSStatus destroyAggregateDevice(AudioObjectID aggregate) = 0;
  /// @}

  /// @name Callbacks
  /// @{
  virtual OSStatus createIOProcID(AudioObjectID device, IOBlock block,
                                  AudioDeviceIOProcID& procID) = 0;
  /// After it returned, the block does not run any more and has been released on this thread.
  virtual OSStatus destroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) = 0;
  virtual OSStatus startDevice(AudioObjectID device, AudioDeviceIOProcID procID) = 0;
  virtual OSStatus stopDevice(AudioObjectID device, AudioDeviceIOProcID procID) = 0;
  /// @}

  /// @name Process taps
  /// A tap is read while an aggregate with it is started and the aggregate's master is there; a
  /// master that returns under its uid is taken again. A tap whose processes have ended gives
  /// silence. Aggregates may share a uid.
  ///
  /// Nobody becomes louder by being tapped. While a boost runs, the real output is held at full
  /// volume and its loopback is the volume control, but what an aggregate with taps plays does not
  /// pass the loopback. The back end therefore multiplies that with the volume and mute of
  ///  - the loopback in any other aggregate with the same master,
  ///  - else the loopback that is the default output, unless a started aggregate is known to feed
  ///    another output from it.
  /// An aggregate that has a loopback among its own members is left alone.
  /// @{
  virtual OSStatus createProcessTap(const TapDescription& description, AudioObjectID& tap) = 0;
  virtual OSStatus destroyProcessTap(AudioObjectID tap) = 0;
  /// @}

  /// Whether this program may receive what is played into a loopback. Without the permission there
  /// is silence, and no call fails. Where the user has not decided yet, the first call has the
  /// system ask; none waits for the answer.
  [[nodiscard]] virtual CapturePermission capturePermission() { return CapturePermission::granted; }

  /// Puts right what processes of this program that are gone have left in the audio system besides
  /// the properties of devices. Touches nothing of those that live.
  virtual void releaseAbandoned() {}

  /// Returns when the audio system has done what any process has asked of it so far, also one that
  /// has ended since; at once where that cannot be known. Any thread but the real-time one.
  virtual void awaitPending() {}

  /// What people call this audio system.
  [[nodiscard]] virtual std::string_view systemName() const { return "Core Audio"; }

  /// Names of other programs through which this audio system sends sound on its way to a real
  /// device, as far as the back end can see them. Each once, by name. Once asked, changes are told
  /// to the listeners of the list of devices.
  [[nodiscard]] virtual std::vector<std::string> effectPrograms() { return {}; }
};

}  // namespace orvelle
