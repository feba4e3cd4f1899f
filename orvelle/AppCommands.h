// The commands for single applications.
#pragma once

#include <cstdint>
#include <string>

#include "orvelle/CommandHost.h"
#include "orvelle/CommandLine.h"
#include "orvelle/EngineHost.h"

namespace orvelle {

/// `apps`: lists the programs that play right now. Returns the exit status. Main thread.
int appsCommand(const CommandLine& commandLine, const CommandHost& host);

/// `appvol`: reads its options and runs until Ctrl-C. Returns the exit status. Main thread.
int appvolCommand(const CommandLine& commandLine, const CommandHost& host);

/// Plays the process `pid`, whose audio process object is `processObjectID`, into one output at a
/// volume of its own until Ctrl-C. `volume` is a linear factor, handed on as it stands. Returns the
/// exit status. Main thread.
int runAppVolume(const EngineHost& host, std::int32_t pid, AudioObjectID processObjectID,
                 const std::string& outputUID, float volume);

}  // namespace orvelle
