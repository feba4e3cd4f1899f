// The commands that look at devices and change no sound: list, watch and rate.
#pragma once

#include "orvelle/CommandHost.h"
#include "orvelle/CommandLine.h"
#include "orvelle/HAL.h"

namespace orvelle {

/// Each returns the exit status. Main thread.
int listCommand(const CommandLine& commandLine, const CommandHost& host);
/// Returns only when the main queue ends.
int watchCommand(const CommandLine& commandLine, const CommandHost& host);
int rateCommand(const CommandLine& commandLine, const CommandHost& host);

/// Prints every device by name, with the default output marked, and how to get a loopback device
/// where there is none.
void printDevices(const HAL& hal, Console& console);

/// Prints the default output now and after each change; serves the main queue until it ends and
/// returns its status.
int watchDefaultOutput(const HAL& hal, Console& console, MainQueue& queue);

}  // namespace orvelle
