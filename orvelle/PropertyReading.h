// Typed reading of properties, for the queries above the hardware interface.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <variant>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// The property's value; absent when the call fails or the value is of another type. Any thread but
/// the real-time one.
template <class Value>
std::optional<Value> readProperty(AudioHardware& hardware, AudioObjectID object,
                                  const PropertyAddress& address) {
  PropertyValue value;
  if (hardware.getPropertyData(object, address, value) != kAudioHardwareNoError) {
    return std::nullopt;
  }
  Value* typed = std::get_if<Value>(&value);
  return typed == nullptr ? std::nullopt : std::optional<Value>(std::move(*typed));
}

/// The same for a list, which is asked for its size first: on the HAL that is what the buffer is
/// made from.
template <class List>
std::optional<List> readList(AudioHardware& hardware, AudioObjectID object,
                             const PropertyAddress& address) {
  std::uint32_t byteSize = 0;
  if (hardware.getPropertyDataSize(object, address, byteSize) != kAudioHardwareNoError) {
    return std::nullopt;
  }
  return readProperty<List>(hardware, object, address);
}

}  // namespace orvelle
