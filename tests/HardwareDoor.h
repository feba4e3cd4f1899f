// The way from code under test to a simulated world: straight, or through a back end that works on
// a stand-in for its platform.
#pragma once

#include <cstdint>
#include <memory>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

/// Each executable links one source that defines it (`StraightDoor.cpp`, or the stand-in's), so
/// that the same tests tell of both. Both arguments outlive the result.
std::unique_ptr<AudioHardware> openDoor(SimulatedHardware& world, ManualQueue& queue);

/// Of a session's calls, every so-manieth is made to fail once: a back end makes many of its own
/// between those that the session asks for.
std::uint64_t failedCallStride();

/// Whether a started tap has its process off the normal path at once, and follows the loopback's
/// volume at once; or when sound has come through it, and with the news.
bool tapsAreImmediate();

/// The id by which a process of the world is known behind the door.
AudioObjectID behindDoor(AudioObjectID process, SimulatedHardware& world, AudioHardware& door);

}  // namespace orvelle
