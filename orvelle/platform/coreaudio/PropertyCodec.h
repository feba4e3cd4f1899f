// Property values on their way to and from the HAL's memory.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstdint>
#include <string>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle::coreaudio {

/// What the memory of a property's value holds.
enum class ValueKind : std::uint8_t {
  unknown,  ///< a selector that is not in the table
  unsigned32,
  signed32,
  float32,
  float64,
  text,
  object,      ///< an object id
  objectList,  ///< object ids
  streamConfiguration,
  streamFormat,
};

ValueKind kindOf(std::uint32_t selector);

::AudioObjectPropertyAddress halAddress(const PropertyAddress& address);

/// Reads a value, ids as the HAL's. `object` is the HAL's id; so it is below. Unknown selectors
/// give kAudioHardwareUnknownPropertyError without a question.
OSStatus readValue(AudioObjectID object, const PropertyAddress& address, PropertyValue& value);

/// Writes a value, ids as the HAL's. One of another alternative than the selector's gives
/// kAudioHardwareBadPropertySizeError.
OSStatus writeValue(AudioObjectID object, const PropertyAddress& address,
                    const PropertyValue& value);

/// The device with this uid; 0 where there is none.
AudioObjectID deviceWithUID(const std::string& uid);

/// Channels of the buffers of one direction; empty where that cannot be read.
StreamConfiguration streamsOf(AudioObjectID device, std::uint32_t scope);

}  // namespace orvelle::coreaudio
