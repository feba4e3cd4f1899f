#include "tests/ForwardingHardware.h"
#include "tests/HardwareDoor.h"

namespace orvelle {

std::unique_ptr<AudioHardware> openDoor(SimulatedHardware& world, ManualQueue& /*queue*/) {
  return std::make_unique<ForwardingHardware>(world);
}

}  // namespace orvelle
