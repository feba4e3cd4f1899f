#include <gtest/gtest.h>

#include <memory>

#include "tests/HardwareDoor.h"
#include "tests/SimulatedRig.h"

namespace orvelle {

namespace {

const auto kSimulated = testing::Values(
    HardwareContractParam{"Simulated", [] { return std::make_unique<SimulatedRig>(openDoor); }});

}  // namespace

INSTANTIATE_TEST_SUITE_P(Simulated, HardwareContract, kSimulated);
INSTANTIATE_TEST_SUITE_P(Simulated, TapContract, kSimulated);

}  // namespace orvelle
