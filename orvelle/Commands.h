// The console tool: from the command word to the command.
#pragma once

#include "orvelle/CommandHost.h"
#include "orvelle/CommandLine.h"

namespace orvelle {

/// Runs one command of the console (all but "gui") to its end and returns the exit status: 0
/// success (also after the usage text for an unknown word), 1 a failure told on standard error, 2
/// wrong use of a command. Main thread.
int runCommand(const CommandLine& commandLine, const CommandHost& host);

}  // namespace orvelle
