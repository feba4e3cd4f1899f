// Which program a playback stream belongs to.
#pragma once

#include <cstdint>
#include <string>

#include "orvelle/platform/pipewire/SessionObjects.h"

namespace orvelle::pipewire {

struct ProcessIdentity {
  /// 0 where it cannot be told: the id that a sandboxed program knows itself by is that of its
  /// sandbox, and names another process outside.
  std::int32_t pid = 0;
  std::string bundleID;  ///< application id, else the binary's name; empty when neither is told
  std::string name;      ///< what the program calls itself; may be empty
};

/// From the properties of a stream and of the connection that made it. What they say comes before
/// what the server knows of the connection's other end: a proxy, such as the PulseAudio server,
/// speaks for the programs behind it. Of a sandboxed program, the server alone is believed.
ProcessIdentity identify(const Properties& stream, const Properties& client);
/// The number alone.
std::int32_t processID(const Properties& stream, const Properties& client);

}  // namespace orvelle::pipewire
