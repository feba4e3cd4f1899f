// The console tool as its user sees it: texts, order and exit status, on a simulated world.
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/NumberText.h"
#include "tests/CommandsRig.h"

namespace orvelle {
namespace {

class CommandsTest : public CommandsRig {
 protected:
  /// The best output, at the volume that it had, whatever has happened.
  void expectInterfaceAtTheEnd() {
    atTheEnd = [](SimulatedHardware& world) {
      EXPECT_EQ(world.defaultOutputUID(), "Interface");
      EXPECT_EQ(world.device("Interface").volumes.at(0).value, 0.25F);
      EXPECT_EQ(world.listenerCount(), 0U);
    };
  }
};

// Would notice: an unknown word or another case that counts as an error, a changed usage text, and
// help that needs an audio server.
TEST_F(CommandsTest, UnknownWordPrintsTheUsageWithoutTouchingHardware) {
  for (const char* word : {"LIST", "help", "--input", ""}) {
    console.lines.clear();
    EXPECT_EQ(run({word}), 0) << word;
    EXPECT_EQ(output(),
              "Orvelle — audio boost / EQ engine\n"
              "\n"
              "usage:\n"
              "  orvelle list                       list all audio devices\n"
              "  orvelle watch                      log default-output changes\n"
              "  orvelle boost --input <uid>        route boost through a loopback device\n"
              "         [--output <uid>] [--gain <x>]\n"
              "  orvelle auto [--gain <x>]          boost + auto-follow the active output\n"
              "  orvelle apps                       list apps currently playing audio\n"
              "  orvelle appvol --pid <pid>         set one app's volume independently\n"
              "         [--vol <0..3>]\n");
  }
  EXPECT_EQ(console.errors, "");
  EXPECT_EQ(hardware, nullptr);
}

// Would notice: a crash, silence or a wrong status where no audio server answers.
TEST_F(CommandsTest, MissingHardwareIsOneLineAndStatusOne) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"list"},
                                             {"watch"},
                                             {"rate", "Speakers"},
                                             {"boost", "--input", kLoopback},
                                             {"auto"},
                                             {"apps"},
                                             {"appvol", "--pid", "1"}}) {
    console.errors.clear();
    std::vector<std::string> vector = arguments;
    vector.insert(vector.begin(), "orvelle");
    const int status = runCommand(CommandLine(vector),
                                  {queue, queue, console, applications, [](std::string& problem) {
                                     problem = "no session at /run/x";
                                     return nullptr;
                                   }});
    EXPECT_EQ(status, 1) << arguments.front();
    EXPECT_EQ(console.errors, "no session at /run/x\n");
  }
  EXPECT_TRUE(console.lines.empty());
}

// Would notice: a value looked for in the wrong place, or the last of two flags winning.
TEST(CommandLine, TakesWhateverFollowsTheFirstFlag) {
  const CommandLine line({"--path", "boost", "--gain", "--output", "a", "--output", "b", "--last"});
  EXPECT_EQ(line.value("--gain"), "--output");
  EXPECT_EQ(line.value("--output"), "a");
  EXPECT_EQ(line.value("--path"), "boost");
  EXPECT_EQ(line.value("boost"), "--gain");
  EXPECT_EQ(line.value("--last"), std::nullopt);
  EXPECT_EQ(line.value("--Gain"), std::nullopt);
  EXPECT_EQ(CommandLine({}).command(), "gui");
}

// Would notice: number texts that a script cannot read back, and texts taken for numbers.
TEST(NumberText, ReadsWholeTextsAndWritesTheShortest) {
  const float largestPlain = std::nextafter(16777216.0F, 0.0F);
  for (const auto& [value, text] : std::vector<std::pair<float, const char*>>{
           {1.5F, "1.5"},
           {3.0F, "3.0"},
           {0.1F, "0.1"},
           {-2.0F, "-2.0"},
           {0.0F, "0.0"},
           {1e-4F, "0.0001"},
           {0.00001F, "1e-05"},
           {1e20F, "1e+20"},
           {largestPlain, "16777215.0"},
           {16777216.0F, "1.6777216e+07"},
           {std::numeric_limits<float>::infinity(), "inf"}}) {
    EXPECT_EQ(shortestText(value), text);
    EXPECT_EQ(parseFloat(text), value);
  }
  for (const char* text : {"", "abc", "2x", "1,5", "2 ", "--output", "0x", "1.5.0"}) {
    EXPECT_EQ(parseFloat(text), std::nullopt) << text;
    EXPECT_EQ(parseDouble(text), std::nullopt) << text;
  }
  EXPECT_EQ(parseFloat(" +0x1.8p0"), 1.5F);
  EXPECT_EQ(parseFloat("1e99"), std::numeric_limits<float>::infinity());
  for (const auto& [text, value] : std::vector<std::pair<const char*, std::int32_t>>{
           {"12", 12}, {"+007", 7}, {"-2147483648", INT32_MIN}, {"2147483647", INT32_MAX}}) {
    EXPECT_EQ(parseInteger(text), value);
  }
  for (const char* text :
       {"", "+", "-", "12x", " 12", "1.0", "0x1", "+-1", "-+1", "2147483648", "--vol"}) {
    EXPECT_EQ(parseInteger(text), std::nullopt) << text;
  }
  EXPECT_EQ(wholeNumberText(44100.9), "44100");
  EXPECT_EQ(wholeNumberText(-0.9), "0");
  EXPECT_EQ(decibelText(-1.0F), "+nan");
}

// Would notice: another order, a lost marker or tag, a headset that is not called a loopback.
TEST_F(CommandsTest, ListSortsByNameAndTagsDevices) {
  prepare = [](SimulatedHardware& world) {
    const auto plug = [&world](const char* name, const char* uid, std::vector<std::uint32_t> inputs,
                               std::vector<std::uint32_t> outputs) {
      DeviceDescription device;
      device.name = name;
      device.uid = uid;
      device.inputBuffers = std::move(inputs);
      device.outputBuffers = std::move(outputs);
      world.plug(device);
    };
    plug("zebra", "z", {}, {2, 6});
    plug("Twin", "second", {}, {2});
    plug("Twin", "a first", {1}, {});
    plug("Öhr", "o", {}, {});
    plug("Twin Set", "set", {1}, {2});
    world.chooseDefaultOutput("second");
  };
  EXPECT_EQ(run({"list", "ignored", "--gain"}), 0);
  EXPECT_EQ(output(),
            "Audio devices (5):\n\n"
            "▶︎ Twin\n    uid: second\n    out:2\n"
            "  Twin\n    uid: a first\n    in:1\n"
            "  Twin Set\n    uid: set\n    out:2  in:1  loopback\n"
            "  zebra\n    uid: z\n    out:8\n"
            "  Öhr\n    uid: o\n    \n"
            "\n▶︎ = current system default output\n");
}

// Would notice: a user without a loopback device who is not told how to get one.
TEST_F(CommandsTest, ListSaysHowToGetALoopback) {
  prepare = [](SimulatedHardware& /*world*/) {};
  EXPECT_EQ(run({"list"}), 0);
  EXPECT_EQ(output(),
            "Audio devices (0):\n\n"
            "\n▶︎ = current system default output\n"
            "\nNo virtual loopback device found. Install one to enable boost:\n"
            "    brew install blackhole-2ch\n");
}

// Would notice: a change that is missed or told of the old device, and a handler for Ctrl-C, which
// has to end this command as it ends any other program.
TEST_F(CommandsTest, WatchTellsEachChange) {
  bool catchesInterrupt = true;
  queue.postAfter(1.0, [&] { hardware->chooseDefaultOutput(kLoopback); });
  queue.postAfter(2.0, [&] { hardware->chooseDefaultOutput("Interface"); });
  const int status = runUntil(3.0,
                              [&] {
                                catchesInterrupt = queue.raise(SIGINT);
                                queue.quit(9);
                              },
                              {"watch"});
  EXPECT_EQ(status, 9);
  EXPECT_FALSE(catchesInterrupt);
  EXPECT_EQ(output(),
            "Watching default-output changes. Ctrl-C to stop.\n\n"
            "current: Speakers name\n"
            "switched → OrvelleAudioDevice_UID name  (out:2)\n"
            "switched → Interface name  (out:2)\n");
}

// Would notice: a rate that is set without being asked, read back too early, or told wrongly.
TEST_F(CommandsTest, RateReadsAndSets) {
  EXPECT_EQ(run({"rate", "Speakers"}), 0);
  EXPECT_EQ(run({"rate", "Speakers", "abc"}), 0);
  const double start = queue.now();
  EXPECT_EQ(run({"rate", "Speakers", "44100"}), 0);
  EXPECT_DOUBLE_EQ(queue.now() - start, 0.4);
  EXPECT_EQ(run({"rate", "Speakers", "9.6e4"}), 0);
  EXPECT_EQ(run({"rate", "Speakers", "12345.9"}), 0);
  EXPECT_EQ(output(),
            "Speakers name: 48000 Hz\n"
            "Speakers name: 48000 Hz\n"
            "set 44100 Hz → requested; now 44100 Hz\n"
            "set 96000 Hz → requested; now 96000 Hz\n"
            "set 12345 Hz → failed; now 48000 Hz\n");
}

// Would notice: a command that works on a device or process that nobody named.
TEST_F(CommandsTest, IncompleteWordsPrintTheUsageWithoutTouchingHardware) {
  const std::string rate = "usage: orvelle rate <device-uid> [44100|48000]\n";
  const std::string boost =
      "usage: orvelle boost --input <loopback-uid> [--output <uid>] [--gain <x>]\n";
  const std::string appvol =
      "usage: orvelle appvol --pid <pid> --vol <0..3>  (get pid from 'orvelle apps')\n";
  for (const auto& [arguments, usage] :
       std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"rate"}, rate},
           {{"boost", "--output", "Speakers", "--gain", "2"}, boost},
           {{"boost", "--input"}, boost},
           {{"appvol"}, appvol},
           {{"appvol", "--pid"}, appvol},
           {{"appvol", "--vol", "2", "--pid", "12x"}, appvol}}) {
    console.lines.clear();
    EXPECT_EQ(run(arguments), 2);
    EXPECT_EQ(output(), usage);
  }
  EXPECT_EQ(hardware, nullptr);
  console.lines.clear();
  EXPECT_EQ(run({"rate", "Speaker", "44100"}), 2);
  EXPECT_EQ(output(), rate) << "for an unknown device, too";
}

// Would notice: another default output or gain, a gain that never reaches the engine, a missing
// meter, and a system that is not put back when the user stops.
TEST_F(CommandsTest, BoostRunsOnTheDefaultOutputUntilCtrlC) {
  float heard = 0.0F;
  queue.postAfter(0.5, [&] {
    hardware->runCycle(4800);
    hardware->runCycle(480);
    heard = hardware->heardPeak("Speakers");
  });
  expectInterfaceAtTheEnd();
  EXPECT_EQ(interruptedAfter(1.5, {"boost", "--input", kLoopback}), 0);
  EXPECT_EQ(output(),
            "Boost running at gain 1.5 (≈+3.5 dB).\n"
            "Loopback: OrvelleAudioDevice_UID\nOutput:   Speakers\nCtrl-C to stop.\n"
            "  in:    2 cb/s  peak 0.100 ▮▮\n"
            "\nStopped, default output restored.\n");
  EXPECT_NEAR(heard, 1.5F * kPlayedLevel, 1e-6F);
  EXPECT_EQ(console.errors, "");
}

// Would notice: a text of the gain that does not follow it, a wrong word that stops the boost,
// --output that is not obeyed, and a volume that stays raised after the end.
TEST_F(CommandsTest, BoostTakesAnyNumberAsGainAndTheOutputThatIsNamed) {
  expectInterfaceAtTheEnd();
  for (const auto& [word, text] :
       std::vector<std::pair<const char*, const char*>>{{"3", "3.0 (≈+9.5 dB)"},
                                                        {"1", "1.0 (≈+0.0 dB)"},
                                                        {"0.5", "0.5 (≈-6.0 dB)"},
                                                        {"0", "0.0 (≈-inf dB)"},
                                                        {"-2", "-2.0 (≈+nan dB)"},
                                                        {"1e20", "1e+20 (≈+400.0 dB)"},
                                                        {"abc", "1.5 (≈+3.5 dB)"},
                                                        {"--output", "1.5 (≈+3.5 dB)"}}) {
    console.lines.clear();
    queue.postAfter(0.1,
                    [&] { EXPECT_EQ(hardware->device("Interface").volumes.at(0).value, 1.0F); });
    EXPECT_EQ(interruptedAfter(
                  0.2, {"boost", "--input", kLoopback, "--output", "Interface", "--gain", word}),
              0);
    EXPECT_EQ(console.lines.at(1),
              "Loopback: OrvelleAudioDevice_UID\nOutput:   Interface\nCtrl-C to stop.");
    EXPECT_EQ(console.lines.front(), std::string("Boost running at gain ") + text + ".");
  }
}

// Would notice: a Ctrl-C in the middle of the start that leaves the output at full volume or a
// program silent, and work that goes on when a second one follows.
TEST_F(CommandsTest, CtrlCDuringTheStartIsHeardWhenItIsDone) {
  int presses = 1;
  const auto prepareWorld = prepare;
  prepare = [&](SimulatedHardware& world) {
    prepareWorld(world);
    world.afterChange = [&] {
      for (; presses > 0; --presses) {
        queue.happenAfter(0.01, [&] { EXPECT_TRUE(queue.raise(SIGINT)) << "the process ends"; });
      }
      queue.sleep(0.02);
    };
  };
  EXPECT_EQ(run({"appvol", "--pid", "0"}), 0);
  EXPECT_EQ(console.lines.back(), "\nStopped.");
  console.lines.clear();
  presses = 2;
  expectInterfaceAtTheEnd();
  EXPECT_EQ(run({"boost", "--input", kLoopback, "--output", "Interface"}), 0);
  EXPECT_EQ(console.lines.size(), 3U);
  EXPECT_EQ(console.lines.back(), "\nStopped, default output restored.");
}

// Would notice: a failed start that leaves the sound on a loopback that nobody plays, an output
// raised, or an aggregate behind; steps back in an order that is loud; and a mistyped uid that is
// not named.
TEST_F(CommandsTest, FailedStartPutsTheSystemBack) {
  atTheEnd = [](SimulatedHardware& world) { EXPECT_EQ(world.defaultOutputUID(), "Speakers"); };
  EXPECT_EQ(run({"boost", "--input", "typo"}), 1);
  expectInterfaceAtTheEnd();
  EXPECT_EQ(run({"boost", "--input", kLoopback, "--output", "other typo"}), 1);
  const auto prepareWorld = prepare;
  prepare = [&](SimulatedHardware& world) {
    prepareWorld(world);
    world.inject({.kind = CallKind::startDevice, .status = 35});
  };
  EXPECT_EQ(run({"boost", "--input", kLoopback, "--output", "Interface"}), 1);
  EXPECT_EQ(console.errors,
            "Boost failed: Audio device not found: typo\n"
            "Boost failed: Audio device not found: other typo\n"
            "Boost failed: AudioDeviceStart failed (OSStatus 35)\n");
  EXPECT_TRUE(console.lines.empty());
}

}  // namespace
}  // namespace orvelle
