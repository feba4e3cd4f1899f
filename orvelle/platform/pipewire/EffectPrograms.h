// Programs that stand between the players and the outputs: equalisers, filter chains, loopbacks.
#pragma once

#include <string>
#include <vector>

#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// The names of those with a sink that has no hardware behind it and whose sound reaches a real
/// device or our loopback. Sorted, each once. Session lock held.
std::vector<std::string> effectPrograms(const Session& session);

}  // namespace orvelle::pipewire
