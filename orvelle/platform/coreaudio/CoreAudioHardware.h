// The hardware interface on the HAL of macOS.
#pragma once

#include <memory>
#include <string>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Object ids are numbers of this object's own (`ObjectIDs`). Sets of volume and mute return when
/// they can be read back, or soon after. What has been made through it ends with it.
///
/// A restart of the audio server looks as if every device had been unplugged and plugged in again;
/// taps, and the aggregates that read them, are made again under their ids.
class CoreAudioHardware final : public AudioHardware {
 public:
  /// Null when the audio system does not answer; `problem` says so then. `queue` receives the
  /// listeners' calls; it and `clock` outlive the hardware. Main thread.
  static std::unique_ptr<CoreAudioHardware> connect(MainQueue& queue, Clock& clock,
                                                    std::string& problem);
  ~CoreAudioHardware() override;

  bool hasProperty(AudioObjectID object, const PropertyAddress& address) override;
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
  CapturePermission capturePermission() override;

 private:
  struct Parts;  // keeps the platform's headers out of this one

  CoreAudioHardware(MainQueue& queue, Clock& clock);

  std::unique_ptr<Parts> parts_;
};

}  // namespace orvelle
