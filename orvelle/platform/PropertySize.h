// How large the HAL would make a value.
#pragma once

#include <cstdint>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// Bytes of the value in the HAL's memory layout; texts are references there.
std::uint32_t propertySize(const PropertyValue& value);

}  // namespace orvelle
