// When a boost that nobody hears goes to sleep, and what wakes it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace orvelle {

/// How often silence is looked for while the boost runs, and sound while it sleeps.
inline constexpr double kRunningPollSeconds = 2.0;
inline constexpr double kStandbyPollSeconds = 0.4;
inline constexpr double kMinBoostBeforeStandbySeconds = 8.0;

/// Programs that play without anybody listening, in lower case; first of all this one.
inline constexpr std::array<std::string_view, 12> kNoPlayers = {
    "orvelle",          "activity monitor",        "coreaudiod",
    "corespeechd",      "mediaanalysisd",          "screencapture",
    "windowserver",     "systemsoundserverd",      "audioaccessoryd",
    "com.apple.speech", "com.apple.mediaanalysis", "com.apple.screencapture"};

/// Whether a process that produces output keeps the boost awake. `name` is the one that people see.
bool isRealPlayer(std::int32_t pid, std::string_view name, std::string_view bundleID);

/// Counts how often in a row nothing was heard.
class SilenceCounter {
 public:
  /// Something plays, or the boost may not sleep now.
  void reset() { silentPolls_ = 0; }
  /// One poll. `level` is the latest peak, linear; `secondsRunning` how long the boost has run,
  /// absent where nobody knows. True when it is time to sleep.
  bool poll(float level, bool hasPlayers, std::optional<double> secondsRunning);

 private:
  int silentPolls_ = 0;
};

}  // namespace orvelle
