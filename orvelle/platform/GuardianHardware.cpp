#include "orvelle/platform/GuardianHardware.h"

#include "orvelle/platform/pipewire/PipeWireHardware.h"

namespace orvelle {

std::unique_ptr<AudioHardware> openGuardianHardware(MainQueue& queue, std::string& problem) {
  return PipeWireHardware::connect(queue, problem, VolumeStorage::written);
}

}  // namespace orvelle
