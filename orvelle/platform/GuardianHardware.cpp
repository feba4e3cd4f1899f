#include "orvelle/platform/GuardianHardware.h"

#ifdef __APPLE__
#include "orvelle/platform/Clock.h"
#include "orvelle/platform/coreaudio/CoreAudioHardware.h"
#else
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#endif

namespace orvelle {

std::unique_ptr<AudioHardware> openGuardianHardware(MainQueue& queue, std::string& problem) {
#ifdef __APPLE__
  static SystemClock clock;
  return CoreAudioHardware::connect(queue, clock, problem);
#else
  return PipeWireHardware::connect(queue, problem, VolumeStorage::written);
#endif
}

}  // namespace orvelle
