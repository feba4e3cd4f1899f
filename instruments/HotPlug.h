// Outputs that come and go, as when a cable is plugged in and pulled.
#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <map>
#include <string>

#include "instruments/SessionClient.h"
#include "instruments/SessionOptions.h"

namespace orvelle::instruments {

class HotPlug {
 public:
  HotPlug();
  /// Pulls everything that it plugged in.
  ~HotPlug();
  HotPlug(const HotPlug&) = delete;
  HotPlug& operator=(const HotPlug&) = delete;

  /// Adds an output; returns when its ports are there: the CLOCK_MONOTONIC time. Throws
  /// std::runtime_error when they do not come.
  std::int64_t plug(const StandIn& standIn);
  /// Removes an output, also one that the session began with; returns when it is gone: the time.
  std::int64_t unplug(const std::string& name);

 private:
  [[nodiscard]] std::size_t portCount(const std::string& name) const;

  SessionClient client_;
  std::map<std::string, pw_proxy*> plugged_;
};

}  // namespace orvelle::instruments
