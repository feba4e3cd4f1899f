#include "orvelle/IdleStandby.h"

#include <algorithm>
#include <string>

namespace orvelle {

namespace {

constexpr float kSilenceLevel = 0.0005F;
constexpr int kSilentPollsNeeded = 3;

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return lower;
}

}  // namespace

bool isRealPlayer(std::int32_t pid, std::string_view name, std::string_view bundleID) {
  if (pid < 1) {
    return false;
  }
  const std::string lowerName = lowerCase(name);
  const std::string lowerBundleID = lowerCase(bundleID);
  return std::ranges::none_of(kNoPlayers, [&](std::string_view excluded) {
    return lowerName.find(excluded) != std::string::npos ||
           lowerBundleID.find(excluded) != std::string::npos;
  });
}

bool SilenceCounter::poll(float level, bool hasPlayers, std::optional<double> secondsRunning) {
  // Not a number is no silence.
  if (!(level < kSilenceLevel) || hasPlayers) {
    reset();
    return false;
  }
  ++silentPolls_;
  const bool isYoung = secondsRunning && *secondsRunning < kMinBoostBeforeStandbySeconds;
  return !isYoung && silentPolls_ >= kSilentPollsNeeded;
}

}  // namespace orvelle
