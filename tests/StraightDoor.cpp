#include "tests/ForwardingHardware.h"
#include "tests/HardwareDoor.h"

namespace orvelle {

std::unique_ptr<AudioHardware> openDoor(SimulatedHardware& world, ManualQueue& /*queue*/) {
  return std::make_unique<ForwardingHardware>(world);
}

AudioObjectID behindDoor(AudioObjectID process, SimulatedHardware& /*world*/,
                         AudioHardware& /*door*/) {
  return process;
}

bool tapsAreImmediate() {
  return true;
}

std::uint64_t failedCallStride() {
  return 1;
}

}  // namespace orvelle
