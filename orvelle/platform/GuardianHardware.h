// The audio system as those need it who put things right for a dead process.
#pragma once

#include <memory>
#include <string>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Connects to the platform's own audio system, where the volumes that are set are then also those
/// that it stores. Null when that fails; `problem` says why. `queue` outlives the result.
std::unique_ptr<AudioHardware> openGuardianHardware(MainQueue& queue, std::string& problem);

}  // namespace orvelle
