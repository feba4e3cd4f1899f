// The way from code under test to a simulated world: straight, or through a back end that works on
// a stand-in for its platform.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "orvelle/PropertyReading.h"
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

/// The id by which a process of the world is known behind the door: that at the same place in the
/// list.
inline AudioObjectID behindDoor(AudioObjectID process, SimulatedHardware& world,
                                AudioHardware& door) {
  const auto processes = [](AudioHardware& hardware) {
    return readProperty<std::vector<AudioObjectID>>(hardware, kAudioObjectSystemObject,
                                                    {kAudioHardwarePropertyProcessObjectList})
        .value_or(std::vector<AudioObjectID>{});
  };
  const auto inWorld = processes(world);
  const auto place = std::ranges::find(inWorld, process) - inWorld.begin();
  return processes(door).at(static_cast<std::size_t>(place));
}

}  // namespace orvelle
