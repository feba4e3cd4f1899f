// The commands of the real program that tell what is there, against a session whose truth is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "instruments/Probe.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

/// Runs it nine times.
std::string outputOfAFastCommand(BoostSession& session, const std::string& word) {
  std::vector<double> times;
  std::string text;
  for (int round = 0; round < 9; ++round) {
    const auto command = session.run({word});
    EXPECT_EQ(command->wait(patience), 0) << command->standardError();
    times.push_back(millisecondsBetween(command->startNs(), command->exitNs()));
    text = command->standardOutput();
  }
  std::ranges::sort(times);
  report(word + ", median of nine", times[4], "ms");
  EXPECT_LT(times[4], 50.0);
  return text;
}

// Would catch a device that is missing or listed twice, a wrong mark, and a list that makes the
// user wait.
TEST(CommandsOnASession, ListTellsTheDevicesAtOnce) {
  std::vector<StandIn> outputs;
  for (int number = 1; number <= 7; ++number) {
    outputs.push_back({.name = "hw_" + std::to_string(number),
                       .description = "Output " + std::to_string(number),
                       .priority = 1000 + number});
  }
  BoostSession session({.standIns = outputs});
  const std::string text = outputOfAFastCommand(session, "list");
  EXPECT_TRUE(text.starts_with("Audio devices (8):\n\n")) << text;
  EXPECT_NE(text.find("▶︎ Output 7\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  Output 1\n"), std::string::npos) << text;
  EXPECT_NE(text.find(loopbackName), std::string::npos) << "as if it were installed";
  EXPECT_EQ(text.find("brew"), std::string::npos) << text;
}

// Would catch an application that is missing, listed twice or under its server's process, one that
// is said to play while it waits, and a list that makes the user wait.
TEST(CommandsOnASession, AppsTellsWhoPlays) {
  BoostSession session({.standIns = {usbOutput()}});
  const Probe waiting(constantSignal(0.1F), {.name = "waiting", .isPaused = true});
  const WaveFile wave = stereoSine(440.0, 0.1F, 0.1F, 20 * 48000);
  const auto native = session.startPlayer("pw-play", wave);
  const auto pulse = session.startPlayer("paplay", wave);
  const std::string text = outputOfAFastCommand(session, "apps");
  EXPECT_EQ(text, "Audio processes (3 total, 2 playing now):\n\n♪ paplay  (pid " +
                      std::to_string(pulse->pid()) + ")  pacat\n♪ pw-play  (pid " +
                      std::to_string(native->pid()) + ")  pw-cat\n");
}

// Would catch a change that is missed, told twice or told wrong.
TEST(CommandsOnASession, WatchTellsEachChangeOnce) {
  BoostSession session(
      {.standIns = {usbOutput(),
                    {.name = "hw_speaker", .description = "Speaker", .bus = "pci", .priority = 1},
                    {.name = "hw_surround",
                     .description = "Surround",
                     .positions = {"FL", "FR", "FC", "LFE", "SL", "SR"},
                     .priority = 1}}});
  const auto watch = session.run({"watch"});
  ASSERT_TRUE(watch->waitForLine("current: USB Headphones", patience)) << watch->standardError();
  std::this_thread::sleep_for(milliseconds(150));  // it begins to listen after that line
  for (const std::string output : {"hw_surround", "hw_speaker", "hw_usb"}) {
    session.panel().configureSink(output);
    ASSERT_TRUE(session.panel().waitForDefault(output, patience));
    std::this_thread::sleep_for(milliseconds(150));
  }
  watch->signal(SIGINT);
  EXPECT_EQ(watch->wait(patience), 128 + SIGINT);
  EXPECT_EQ(watch->standardOutput(),
            "Watching default-output changes. Ctrl-C to stop.\n\ncurrent: USB Headphones\n"
            "switched → Surround  (out:6)\nswitched → Speaker  (out:2)\n"
            "switched → USB Headphones  (out:2)\n");
}

// Would catch a boost of the loopback into itself, and one that half starts: nothing may change.
TEST(CommandsOnASession, BoostOfTheLoopbackIntoItselfIsRefused) {
  BoostSession session({.standIns = {usbOutput()}});
  const auto before = session.inventory();
  const auto itself = session.run({"boost", "--input", loopbackName, "--output", loopbackName});
  EXPECT_EQ(itself->wait(patience), 1);
  EXPECT_TRUE(itself->standardError().starts_with("Boost failed: CreateAggregateDevice failed"))
      << itself->standardError();
  EXPECT_TRUE(session.panel().waitForDefault("hw_usb", milliseconds(1000)));
  EXPECT_EQ(session.panel().configuredSink(), "");
  EXPECT_TRUE(session.returnsTo(before));
}

// Would catch a program that hangs or dies without a word where no session answers.
TEST(CommandsOnASession, NoSessionIsOneClearLine) {
  const TemporaryDirectory empty;
  const Environment environment = {{"PATH", getenv("PATH")}, {"XDG_RUNTIME_DIR", empty.path()}};
  Subprocess list({ORVELLE_PROGRAM, "list"}, environment);
  EXPECT_EQ(list.wait(patience), 1);
  const std::string error = list.standardError();
  EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1) << error;
  EXPECT_NE(error.find("ORVELLE_BACKEND"), std::string::npos) << error;
}

}  // namespace
}  // namespace orvelle::instruments
