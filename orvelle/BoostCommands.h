// The commands that boost everything the computer plays.
#pragma once

#include <string>

#include "orvelle/BoostEngine.h"
#include "orvelle/CommandHost.h"
#include "orvelle/CommandLine.h"

namespace orvelle {

/// `boost`: reads its options and runs until Ctrl-C. Returns the exit status. Main thread.
int boostCommand(const CommandLine& commandLine, const CommandHost& host);

/// Boosts through the loopback device into one fixed output until Ctrl-C. `gain` is a linear
/// factor, handed on as it stands. Returns the exit status. Main thread.
int runBoost(const EngineHost& host, const std::string& loopbackUID, const std::string& outputUID,
             float gain);

/// `auto`: as `boost`, on the best real output as devices come and go.
int autoCommand(const CommandLine& commandLine, const CommandHost& host);

/// Boosts through the loopback device into the preferred output until Ctrl-C. Status 1 where there
/// is no real output. Otherwise as `runBoost`.
int runAuto(const EngineHost& host, const std::string& loopbackUID, float gain);

}  // namespace orvelle
