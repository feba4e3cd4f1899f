// The sample rate of a device, read and asked for.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/pipewire/GraphStream.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// Session lock held in every call.
class NominalRate {
 public:
  explicit NominalRate(Session& session) : session_(session) {}

  /// Hz, of what runs, else of what the device would run at. 0 when unknown.
  [[nodiscard]] double read(const Node& node);

  /// Makes the device run at `rate` Hz and waits for it. The rate of a single device is nothing
  /// that a session has; what makes it switch is a silent stream of ours on the device that insists
  /// on the rate. The device keeps it until something else asks for another one.
  OSStatus set(const Node& node, double rate);

  void linkUp();
  /// The connection is gone, and what was asked for with it.
  void drop() { requests_.clear(); }

 private:
  Session& session_;
  std::map<std::string, std::unique_ptr<GraphStream>, std::less<>> requests_;  // by node name
};

}  // namespace orvelle::pipewire
