// What an engine needs of the world.
#pragma once

#include "orvelle/UndoKeeper.h"
#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// All of it outlives the engine.
struct EngineHost {
  AudioHardware& hardware;
  MainQueue& queue;
  Clock& clock;
  Console& console;
  UndoKeeper& undoKeeper = UndoKeeper::none();
};

}  // namespace orvelle
