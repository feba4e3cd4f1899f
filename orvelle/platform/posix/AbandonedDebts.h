// Paying what processes have left behind that had nobody to pay for them.
#pragma once

#include <functional>
#include <memory>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/posix/UndoJournal.h"

namespace orvelle {

/// Puts right what the journals of dead processes tell. `connect` opens the hardware for that, and
/// is called only where there is something to pay. What cannot be paid yet stays in its journal; a
/// damaged one is set aside, and `console` says so.
void payAbandonedDebts(const UndoJournal& journal, Console& console,
                       const std::function<std::unique_ptr<AudioHardware>()>& connect);

}  // namespace orvelle
