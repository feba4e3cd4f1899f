#include "orvelle/platform/BackEnd.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "orvelle/platform/GuardianHardware.h"
#include "orvelle/platform/posix/AbandonedDebts.h"
#include "orvelle/platform/posix/GuardedUndoKeeper.h"
#include "orvelle/platform/simulated/Demonstration.h"
#ifndef __APPLE__
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#endif

namespace orvelle {

namespace {

struct BackEnd {
  std::string_view name;
  std::unique_ptr<AudioHardware> (*open)(MainQueue& queue, Console& console, std::string& problem);
  std::unique_ptr<UndoKeeper> (*openUndoKeeper)(Console& console);
};

#ifdef __APPLE__
constexpr std::string_view kPlatformsOwn = "coreaudio";

std::unique_ptr<AudioHardware> connect(MainQueue& queue, std::string& problem) {
  return openGuardianHardware(queue, problem);  // volumes are stored in any case there
}
#else
constexpr std::string_view kPlatformsOwn = "pipewire";

std::unique_ptr<AudioHardware> connect(MainQueue& queue, std::string& problem) {
  std::unique_ptr<AudioHardware> hardware = PipeWireHardware::connect(queue, problem);
  if (!hardware) {
    problem += "; start a PipeWire session, or set ORVELLE_BACKEND=simulated for a demonstration.";
  }
  return hardware;
}
#endif

std::unique_ptr<AudioHardware> openPlatformsOwn(MainQueue& queue, Console& console,
                                                std::string& problem) {
  payAbandonedDebts(UndoJournal(), console,
                    [&queue, &problem] { return openGuardianHardware(queue, problem); });
  return connect(queue, problem);
}

std::unique_ptr<UndoKeeper> keepGuarded(Console& console) {
  return std::make_unique<GuardedUndoKeeper>(UndoJournal(), console);
}

std::unique_ptr<AudioHardware> openSimulated(MainQueue& queue, Console& /*console*/,
                                             std::string& /*problem*/) {
  return std::make_unique<Demonstration>(queue);
}

/// What exists in memory only ends with the process.
std::unique_ptr<UndoKeeper> keepNothing(Console& /*console*/) {
  return std::make_unique<ForgetfulUndoKeeper>();
}

constexpr std::array kBackEnds = {
    BackEnd{kPlatformsOwn, openPlatformsOwn, keepGuarded},
    BackEnd{"simulated", openSimulated, keepNothing},
};

std::string knownNames() {
  std::string names;
  for (const BackEnd& backEnd : kBackEnds) {
    names += (names.empty() ? "" : ", ") + std::string(backEnd.name);
  }
  return names;
}

std::string_view wantedName() {
  const char* const setting = std::getenv("ORVELLE_BACKEND");
  return setting != nullptr && *setting != '\0' ? setting : kPlatformsOwn;
}

/// Null where this build has none of the wanted name.
const BackEnd* wantedBackEnd() {
  const auto* const found = std::ranges::find(kBackEnds, wantedName(), &BackEnd::name);
  return found == kBackEnds.end() ? nullptr : found;
}

}  // namespace

std::unique_ptr<AudioHardware> openBackEnd(MainQueue& queue, Console& console,
                                           std::string& problem) {
  const BackEnd* const backEnd = wantedBackEnd();
  if (backEnd == nullptr) {
    problem = "There is no audio back end \"" + std::string(wantedName()) +
              "\" in this build; set ORVELLE_BACKEND to one of: " + knownNames() + ".";
    return nullptr;
  }
  return backEnd->open(queue, console, problem);
}

std::unique_ptr<UndoKeeper> openUndoKeeper(Console& console) {
  const BackEnd* const backEnd = wantedBackEnd();
  return backEnd == nullptr ? keepNothing(console) : backEnd->openUndoKeeper(console);
}

}  // namespace orvelle
