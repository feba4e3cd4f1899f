// The session's default output: what it is, and what it is configured to be.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// Session lock held in every call.
class DefaultOutput {
 public:
  explicit DefaultOutput(Session& session) : session_(session) {}

  /// The node name of the default output in effect; empty when there is none.
  [[nodiscard]] std::string effective() const;

  /// Configures the loopback as default output and remembers what was configured before. Waits for
  /// the session to follow. False when the session has no manager to tell.
  bool moveToLoopback(std::string_view loopback);
  /// Configures `output` and waits. Where nothing was configured before `moveToLoopback`, nothing
  /// is configured afterwards, provided that the session stays on `output` without it.
  bool moveTo(std::string_view output);

  /// To be called when the session has a new manager, which knows nothing of what was noted with
  /// the one before. Does not wait.
  void noteAgain();

  /// Returns when the session manager has done what anybody has asked of it so far.
  void awaitPending();
  /// Where the loopback is configured and not there, because its process is gone, configures what
  /// was configured before it. The same where that process was on its way back.
  void releaseAbandoned(std::string_view loopback);

 private:
  [[nodiscard]] std::string configured() const;
  void note(const char* key, std::string_view name);
  [[nodiscard]] std::string noted(const char* key) const;
  bool configure(std::string_view name);
  [[nodiscard]] bool wouldStayOn(std::string_view output) const;
  void unconfigure(std::string_view output);
  [[nodiscard]] bool streamsHaveLeft(std::string_view output) const;
  bool move(std::string_view to);

  Session& session_;
  /// From before the loopback was configured, empty for nothing; absent while it is not.
  std::optional<std::string> formerlyConfigured_;
};

}  // namespace orvelle::pipewire
