#include "tests/coreaudio/StandInDoor.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

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
