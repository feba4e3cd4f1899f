// The list of applications that the real program prints, against a session whose truth is known.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "instruments/Probe.h"
#include "tests/session/AppSession.h"

namespace orvelle::instruments {
namespace {

// Would catch an application that is missing, listed twice or under its server's process, one that
// is said to play while it waits, and a list that makes the user wait.
TEST(AppsOnASession, TellsWhoPlays) {
  AppSession session({.standIns = {usbOutput()}});
  const Probe waiting(constantSignal(0.1F), {.name = "waiting", .isPaused = true});
  const WaveFile wave = stereoSine(440.0, 0.1F, 0.1F, 20 * 48000);
  const auto native = session.startPlayer("pw-play", wave);
  const auto pulse = session.startPlayer("paplay", wave);
  std::vector<double> times;
  std::string text;
  for (int round = 0; round < 9; ++round) {
    const auto apps = session.run({"apps"});
    ASSERT_EQ(apps->wait(patience), 0) << apps->standardError();
    times.push_back(millisecondsBetween(apps->startNs(), apps->exitNs()));
    text = apps->standardOutput();
  }
  std::ranges::sort(times);
  report("apps, median of nine", times[4], "ms");
  EXPECT_LT(times[4], 50.0);
  EXPECT_EQ(text, "Audio processes (3 total, 2 playing now):\n\n♪ paplay  (pid " +
                      std::to_string(pulse->pid()) + ")  pacat\n♪ pw-play  (pid " +
                      std::to_string(native->pid()) + ")  pw-cat\n");
}

// Would catch a list that is wrong where there is nothing to tell.
TEST(AppsOnASession, TellsThatNobodyPlays) {
  AppSession session({.standIns = {usbOutput()}});
  const auto apps = session.run({"apps"});
  EXPECT_EQ(apps->wait(patience), 0);
  EXPECT_EQ(apps->standardOutput(),
            "Audio processes (0 total, 0 playing now):\n\n"
            "  (nothing playing — start some audio and re-run)\n");
}

}  // namespace
}  // namespace orvelle::instruments
