// The contract of hardware back ends, for the CoreAudio one on its stand-in.
#include <gtest/gtest.h>

#include <memory>

#include "tests/SimulatedRig.h"
#include "tests/coreaudio/StandInDoor.h"

namespace orvelle {

namespace {

HardwareContractParam on(const std::string& name, const coreaudio::Adversity& adversity) {
  return {name, [adversity] {
            return std::make_unique<SimulatedRig>(
                [&adversity](SimulatedHardware& world, ManualQueue& queue) {
                  return openStandInDoor(world, queue, adversity);
                });
          }};
}

const auto kBackEnds =
    testing::Values(on("CoreAudio", {}), on("HostileCoreAudio", coreaudio::hostile()));

std::string nameOf(const testing::TestParamInfo<HardwareContractParam>& info) {
  return info.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(StandIn, HardwareContract, kBackEnds, nameOf);
INSTANTIATE_TEST_SUITE_P(StandIn, TapContract, kBackEnds, nameOf);

}  // namespace orvelle
