// The hardware interface on a PipeWire session.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// What the session manager is to store when a volume is set, for the next login.
enum class VolumeStorage : std::uint8_t {
  kept,     ///< what it had stored: the change is temporary
  written,  ///< the new volume: the change puts something right
};

/// Sinks and sources are devices: the uid is the node's name, the name its description. A loopback
/// device is listed as if it were installed, and made when it is needed.
class PipeWireHardware final : public AudioHardware {
 public:
  /// Null when no session answers; `problem` then says what was tried and what came of it. `queue`
  /// receives the listeners' calls and outlives the hardware.
  static std::unique_ptr<PipeWireHardware> connect(MainQueue& queue, std::string& problem,
                                                   VolumeStorage storage = VolumeStorage::kept);
  ~PipeWireHardware() override;

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
  void releaseAbandoned() override;
  void awaitPending() override;

  [[nodiscard]] std::string_view systemName() const override { return "PipeWire"; }
  [[nodiscard]] std::vector<std::string> effectPrograms() override;

 private:
  struct Parts;

  explicit PipeWireHardware(std::unique_ptr<Parts> parts);

  std::unique_ptr<Parts> parts_;
};

}  // namespace orvelle
