// What the commands need of the world.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "orvelle/UndoKeeper.h"
#include "orvelle/platform/ApplicationNames.h"
#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

struct CommandHost {
  MainQueue& queue;
  Clock& clock;
  Console& console;
  const ApplicationNames& applicationNames;
  /// Connects to the audio hardware. Null when there is none; `problem` is then one line that says
  /// what was tried and what to do. Called only by commands that cannot do without.
  std::function<std::unique_ptr<AudioHardware>(std::string& problem)> openHardware;
  UndoKeeper& undoKeeper = UndoKeeper::none();
};

/// Connects to the audio hardware. Null when there is none, which standard error says then.
std::unique_ptr<AudioHardware> openHardware(const CommandHost& host);

}  // namespace orvelle
