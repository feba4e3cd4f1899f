// The choice among the hardware back ends that this build has.
#pragma once

#include <memory>
#include <string>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Connects to the back end that the environment variable ORVELLE_BACKEND names (pipewire,
/// simulated or coreaudio), without one to the platform's own. Null when that fails; `problem` is
/// then one line that says what was tried and what to do. `queue` must outlive the result.
/// Main thread.
std::unique_ptr<AudioHardware> openBackEnd(MainQueue& queue, std::string& problem);

}  // namespace orvelle
