#include "tests/coreaudio/StandInDoor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/PropertyReading.h"
#include "tests/HardwareDoor.h"

namespace orvelle {

std::unique_ptr<StandInDoor> openStandInDoor(SimulatedHardware& world, ManualQueue& queue,
                                             const coreaudio::Adversity& adversity) {
  auto standIn = std::make_unique<coreaudio::StandIn>(world, queue);
  standIn->adversity = adversity;
  std::string problem;
  auto hardware = CoreAudioHardware::connect(queue, queue, problem);
  EXPECT_EQ(problem, "");
  return std::make_unique<StandInDoor>(std::move(standIn), std::move(hardware));
}

/// That at the same place in the list; 0 where it has ended, or cannot be asked for.
AudioObjectID behindDoor(AudioObjectID process, SimulatedHardware& world, AudioHardware& door) {
  const auto processes = [](AudioHardware& hardware) {
    return readProperty<std::vector<AudioObjectID>>(hardware, kAudioObjectSystemObject,
                                                    {kAudioHardwarePropertyProcessObjectList})
        .value_or(std::vector<AudioObjectID>{});
  };
  const auto inWorld = processes(world);
  const auto behind = processes(door);
  const auto found = std::ranges::find(inWorld, process);
  return found == inWorld.end() || behind.size() != inWorld.size()
             ? kAudioObjectUnknown
             : behind[static_cast<std::size_t>(found - inWorld.begin())];
}

bool tapsAreImmediate() {
  return false;
}

std::uint64_t failedCallStride() {
  return 61;
}

/// Forgiving, unless the environment variable ORVELLE_STANDIN says "hostile".
std::unique_ptr<AudioHardware> openDoor(SimulatedHardware& world, ManualQueue& queue) {
  const char* const setting = std::getenv("ORVELLE_STANDIN");
  const bool isHostile = setting != nullptr && std::string(setting) == "hostile";
  return openStandInDoor(world, queue, isHostile ? coreaudio::hostile() : coreaudio::Adversity{});
}

}  // namespace orvelle
