// How loud an application that is played past the loopback may be.
#pragma once

#include <optional>
#include <string_view>

#include "orvelle/platform/pipewire/DefaultOutput.h"
#include "orvelle/platform/pipewire/LoopbackNode.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// Begins the name of the streams that feed a loopback into a real output, of every instance.
inline constexpr std::string_view kBoostPrefix = "app.orvelle.aggregate.";

/// Linear factors, 0 to 1 (more where the loopback amplifies).
struct StereoFactors {
  float left = 1.0F;
  float right = 1.0F;
};

/// While a boost runs, its output stands at full volume and the loopback has the volume and mute
/// that the user sets. A tap plays past the loopback, into that same output: it has to follow the
/// loopback by itself. It does so as soon as the default output is on the loopback, which is before
/// any output is raised, and stops when it is known that another output is meant.
///
/// Session lock held in every call.
class TapLoudness {
 public:
  TapLoudness(const Session& session, const LoopbackNode& loopback,
              const DefaultOutput& defaultOutput)
      : session_(session), loopback_(loopback), defaultOutput_(defaultOutput) {}

  /// For what a tap plays into the node `output`. Absent when it cannot be told now: what held
  /// before holds on.
  [[nodiscard]] std::optional<StereoFactors> factorsAt(std::string_view output) const;

 private:
  [[nodiscard]] bool isRaised(std::string_view output) const;

  const Session& session_;
  const LoopbackNode& loopback_;
  const DefaultOutput& defaultOutput_;
};

}  // namespace orvelle::pipewire
