// The choice among the hardware back ends that this build has.
#pragma once

#include <memory>
#include <string>

#include "orvelle/UndoKeeper.h"
#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Connects to the back end that the environment variable ORVELLE_BACKEND names (that of the
/// platform, coreaudio or pipewire, or simulated), without one to the platform's own. Null when
/// that fails; `problem` is then one line that says what was tried and what to do. `queue` must
/// outlive the result. Main thread.
///
/// What a killed instance has left to put right is put right first; `console` hears of what cannot.
std::unique_ptr<AudioHardware> openBackEnd(MainQueue& queue, Console& console,
                                           std::string& problem);

/// Who remembers the debts of this process with that back end; one that forgets where a killed
/// process leaves nothing behind. `console` must outlive the result.
std::unique_ptr<UndoKeeper> openUndoKeeper(Console& console);

}  // namespace orvelle
