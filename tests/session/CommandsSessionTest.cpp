// The device commands of the real program against a session whose truth is known.
#include <gtest/gtest.h>
#include <pipewire/pipewire.h>

#include <algorithm>
#include <csignal>
#include <string_view>
#include <thread>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

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
  std::vector<double> times;
  std::string text;
  for (int round = 0; round < 9; ++round) {
    const auto list = session.run({"list"});
    ASSERT_EQ(list->wait(patience), 0) << list->standardError();
    times.push_back(static_cast<double>(list->exitNs() - list->startNs()) * 1e-6);
    text = list->standardOutput();
  }
  std::sort(times.begin(), times.end());
  report("list of 8 devices, median of nine", times[4], "ms");
  EXPECT_LT(times[4], 50.0);
  EXPECT_TRUE(text.starts_with("Audio devices (8):\n\n")) << text;
  EXPECT_NE(text.find("▶︎ Output 7\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  Output 1\n"), std::string::npos) << text;
  EXPECT_NE(text.find(loopbackName), std::string::npos) << "as if it were installed";
  EXPECT_EQ(text.find("brew"), std::string::npos) << text;
}

// Would catch a rate that is asked for and not set, and one that is told and not true.
TEST(CommandsOnASession, RateReadsAndSets) {
  StandIn output = usbOutput();
  output.rate = 0;
  BoostSession session({.standIns = {output}, .allowedRates = {44100, 48000}});
  Recorder recorder("hw_usb");
  const Probe probe(sineSignal(997.0, 0.1F), {});
  const auto outputOf = [&](const std::vector<std::string>& words) {
    const auto process = session.run(words);
    EXPECT_EQ(process->wait(patience), 0) << process->standardError();
    return process->standardOutput();
  };
  EXPECT_EQ(outputOf({"rate", "hw_usb"}), "USB Headphones: 48000 Hz\n");
  recorder.forget();
  // With newer servers such an output keeps its own rate while the graph around it switches, and
  // resamples: the device has not taken the rate, and that is to be told.
  const bool isTaken = std::string_view(pw_get_library_version()).starts_with("0.");
  EXPECT_EQ(outputOf({"rate", "hw_usb", "44100"}), isTaken
                                                       ? "set 44100 Hz → requested; now 44100 Hz\n"
                                                       : "set 44100 Hz → failed; now 48000 Hz\n");
  const Recording recording = recorder.take();
  EXPECT_TRUE(std::any_of(recording.cycles.begin(), recording.cycles.end(), [](const Cycle& cycle) {
    return cycle.rate == 44100;
  })) << "the session never ran at that rate";
  const auto unknown = session.run({"rate", "hw_none"});
  EXPECT_EQ(unknown->wait(patience), 2);
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
TEST(CommandsOnASession, BoostRefusesWhatCannotWork) {
  BoostSession session({.standIns = {usbOutput()}});
  const auto before = session.inventory();
  const auto unknown = session.run({"boost", "--input", "none"});
  EXPECT_EQ(unknown->wait(patience), 1);
  EXPECT_EQ(session.panel().configuredSink(), "");
  EXPECT_EQ(unknown->standardError(), "Boost failed: Audio device not found: none\n");
  const auto gone = session.run({"boost", "--input", loopbackName, "--output", "hw_gone"});
  EXPECT_EQ(gone->wait(patience), 1);
  EXPECT_EQ(gone->standardError(), "Boost failed: Audio device not found: hw_gone\n");
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
