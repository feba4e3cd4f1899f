// An aggregate's description as the HAL takes it.
#pragma once

#include <string>
#include <vector>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/coreaudio/CoreFoundationValues.h"

namespace orvelle::coreaudio {

/// Keys that say nothing are left out: the lists of members and taps where they are empty, drift
/// where it is not compensated. `tapUIDs` are those of the HAL, in the order of the description.
Owned<CFDictionaryRef> aggregateDictionary(const AggregateDescription& description,
                                           const std::vector<std::string>& tapUIDs);

}  // namespace orvelle::coreaudio
