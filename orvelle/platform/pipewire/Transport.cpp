#include "orvelle/platform/pipewire/Transport.h"

#include <string_view>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle::pipewire {

namespace {

std::uint32_t transportOfBus(std::string_view bus) {
  if (bus == "pci" || bus == "platform" || bus == "isa" || bus == "i2c" || bus == "spi" ||
      bus == "soundwire" || bus == "acpi") {
    return kAudioDeviceTransportTypeBuiltIn;
  }
  if (bus == "usb") {
    return kAudioDeviceTransportTypeUSB;
  }
  if (bus == "bluetooth") {
    return kAudioDeviceTransportTypeBluetooth;
  }
  if (bus == "hdmi") {
    return kAudioDeviceTransportTypeHDMI;
  }
  if (bus == "displayport") {
    return kAudioDeviceTransportTypeDisplayPort;
  }
  if (bus == "firewire") {
    return kAudioDeviceTransportTypeFireWire;
  }
  return kAudioDeviceTransportTypeUnknown;
}

}  // namespace

bool hasDeviceBehind(const Properties& node) {
  return !valueOf(node, "device.api").empty() || valueOf(node, "node.network") == "true";
}

std::uint32_t transportOf(const Properties& node, const Properties& card) {
  const auto either = [&](std::string_view key) {
    const std::string_view ofNode = valueOf(node, key);
    return ofNode.empty() ? valueOf(card, key) : ofNode;
  };
  if (either("device.api") == "bluez5") {
    return kAudioDeviceTransportTypeBluetooth;
  }
  // A graphics card's audio sits on the same bus as the built-in one: the profile tells them apart.
  if (either("device.profile.name").starts_with("hdmi-")) {
    return kAudioDeviceTransportTypeHDMI;
  }
  if (const std::uint32_t transport = transportOfBus(either("device.bus"))) {
    return transport;
  }
  return hasDeviceBehind(node) ? kAudioDeviceTransportTypeUnknown
                               : kAudioDeviceTransportTypeVirtual;
}

}  // namespace orvelle::pipewire
