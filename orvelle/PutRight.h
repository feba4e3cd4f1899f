// Paying the debts of a process that is gone.
#pragma once

#include "orvelle/UndoRecord.h"
#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// Puts back what still stands as the process left it; what the user has changed since is the
/// user's. Outputs are lowered before the default output may go to one of them. Returns what could
/// not be done yet, because an output is not there or refuses. Any thread but the real-time one.
UndoRecords putRight(AudioHardware& hardware, const UndoRecords& records);

/// The two halves of that, for one who has to be quick about the first: `loud` of the second is
/// what the first returned. What the second returns includes it.
UndoRecords lowerOutputs(AudioHardware& hardware, const UndoRecords& records);
UndoRecords restoreRouting(AudioHardware& hardware, const UndoRecords& records,
                           const UndoRecords& loud);

}  // namespace orvelle
