#include "orvelle/platform/BackEnd.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "orvelle/platform/simulated/Demonstration.h"
#ifdef ORVELLE_HAS_PIPEWIRE
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#endif

namespace orvelle {

namespace {

struct BackEnd {
  std::string_view name;
  std::unique_ptr<AudioHardware> (*open)(MainQueue& queue, std::string& problem);
};

#ifdef ORVELLE_HAS_PIPEWIRE
std::unique_ptr<AudioHardware> openPipeWire(MainQueue& queue, std::string& problem) {
  std::unique_ptr<AudioHardware> hardware = PipeWireHardware::connect(queue, problem);
  if (!hardware) {
    problem += "; start a PipeWire session, or set ORVELLE_BACKEND=simulated for a demonstration.";
  }
  return hardware;
}
#endif

std::unique_ptr<AudioHardware> openSimulated(MainQueue& queue, std::string& /*problem*/) {
  return std::make_unique<Demonstration>(queue);
}

#ifdef __APPLE__
constexpr std::string_view kPlatformsOwn = "coreaudio";
#else
constexpr std::string_view kPlatformsOwn = "pipewire";
#endif

constexpr std::array kBackEnds = {
#ifdef ORVELLE_HAS_PIPEWIRE
    BackEnd{"pipewire", openPipeWire},
#endif
    BackEnd{"simulated", openSimulated},
};

std::string knownNames() {
  std::string names;
  for (const BackEnd& backEnd : kBackEnds) {
    names += (names.empty() ? "" : ", ") + std::string(backEnd.name);
  }
  return names;
}

}  // namespace

std::unique_ptr<AudioHardware> openBackEnd(MainQueue& queue, std::string& problem) {
  const char* const setting = std::getenv("ORVELLE_BACKEND");
  const bool isChosen = setting != nullptr && *setting != '\0';
  const std::string_view wanted = isChosen ? setting : kPlatformsOwn;
  const auto* const backEnd =
      std::find_if(kBackEnds.begin(), kBackEnds.end(),
                   [wanted](const BackEnd& candidate) { return candidate.name == wanted; });
  if (backEnd == kBackEnds.end()) {
    problem = "There is no audio back end \"" + std::string(wanted) +
              "\" in this build; set ORVELLE_BACKEND to one of: " + knownNames() + ".";
    return nullptr;
  }
  return backEnd->open(queue, problem);
}

}  // namespace orvelle
