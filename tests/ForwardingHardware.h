// A hardware interface that hands every call on.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// For those that own what stands behind it, or want to be in between.
class ForwardingHardware : public AudioHardware {
 public:
  explicit ForwardingHardware(AudioHardware& target) : target_(target) {}

  bool hasProperty(AudioObjectID object, const PropertyAddress& address) override {
    return target_.hasProperty(object, address);
  }
  OSStatus isPropertySettable(AudioObjectID object, const PropertyAddress& address,
                              bool& settable) override {
    return target_.isPropertySettable(object, address, settable);
  }
  OSStatus getPropertyDataSize(AudioObjectID object, const PropertyAddress& address,
                               std::uint32_t& byteSize) override {
    return target_.getPropertyDataSize(object, address, byteSize);
  }
  OSStatus getPropertyData(AudioObjectID object, const PropertyAddress& address,
                           PropertyValue& value) override {
    return target_.getPropertyData(object, address, value);
  }
  OSStatus setPropertyData(AudioObjectID object, const PropertyAddress& address,
                           const PropertyValue& value) override {
    return target_.setPropertyData(object, address, value);
  }
  OSStatus addPropertyListener(AudioObjectID object, const PropertyAddress& address,
                               PropertyListener listener, ListenerToken& token) override {
    return target_.addPropertyListener(object, address, std::move(listener), token);
  }
  OSStatus removePropertyListener(ListenerToken token) override {
    return target_.removePropertyListener(token);
  }
  OSStatus createAggregateDevice(const AggregateDescription& description,
                                 AudioObjectID& aggregate) override {
    return target_.createAggregateDevice(description, aggregate);
  }
  OSStatus destroyAggregateDevice(AudioObjectID aggregate) override {
    return target_.destroyAggregateDevice(aggregate);
  }
  OSStatus createIOProcID(AudioObjectID device, IOBlock block,
                          AudioDeviceIOProcID& procID) override {
    return target_.createIOProcID(device, std::move(block), procID);
  }
  OSStatus destroyIOProcID(AudioObjectID device, AudioDeviceIOProcID procID) override {
    return target_.destroyIOProcID(device, procID);
  }
  OSStatus startDevice(AudioObjectID device, AudioDeviceIOProcID procID) override {
    return target_.startDevice(device, procID);
  }
  OSStatus stopDevice(AudioObjectID device, AudioDeviceIOProcID procID) override {
    return target_.stopDevice(device, procID);
  }
  OSStatus createProcessTap(const TapDescription& description, AudioObjectID& tap) override {
    return target_.createProcessTap(description, tap);
  }
  OSStatus destroyProcessTap(AudioObjectID tap) override { return target_.destroyProcessTap(tap); }
  CapturePermission capturePermission() override { return target_.capturePermission(); }

 private:
  AudioHardware& target_;
};

}  // namespace orvelle
