#include "orvelle/CommandHost.h"

namespace orvelle {

std::unique_ptr<AudioHardware> openHardware(const CommandHost& host) {
  std::string problem;
  std::unique_ptr<AudioHardware> hardware = host.openHardware(problem);
  if (!hardware) {
    host.console.printError(problem + "\n");
  }
  return hardware;
}

}  // namespace orvelle
