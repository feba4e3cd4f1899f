// The commands for single applications as their user sees them.
#include <cmath>

#include "tests/CommandsRig.h"

namespace orvelle {

namespace {

class AppCommandsTest : public CommandsRig {
 protected:
  /// Adds a program that plays 0.1 into the default output.
  void launch(std::int32_t pid, const std::string& bundleID = "", bool isPlaying = true) {
    prepare = [before = prepare, pid, bundleID, isPlaying](SimulatedHardware& world) {
      before(world);
      ProcessDescription program;
      program.pid = pid;
      program.bundleID = bundleID;
      program.isPlaying = isPlaying;
      program.signal = [](std::int64_t /*frame*/, std::uint32_t /*channel*/) {
        return kPlayedLevel;
      };
      world.launch(program);
    };
  }

  /// A back end may wait for the first sound before it takes the program off its normal path.
  void letSoundThrough() {
    queue.postAfter(0.3, [this] { hardware->runCycle(4); });
  }

  void plugNothing() {
    prepare = [](SimulatedHardware& /*world*/) {};
  }
};

}  // namespace

// Would notice: silent programs that are listed or not counted, an order of the locale or without
// regard to case, equal names that change places, a bundle identifier that is left out, and a name
// that is not the desktop's.
TEST_F(AppCommandsTest, AppsListsWhatPlaysByName) {
  plugNothing();
  applications.names = {{"org.example.Editor", "alpha"}, {"org.example.Radio", "Zeta"}};
  launch(30, "org.example.Editor");
  launch(20, "org.example.Radio");
  launch(40, "mute", false);
  launch(50);
  launch(10, "öre");
  launch(5, "org.example.Editor");
  EXPECT_EQ(run({"apps"}), 0);
  EXPECT_EQ(output(),
            "Audio processes (6 total, 5 playing now):\n\n"
            "♪ Zeta  (pid 20)  org.example.Radio\n"
            "♪ alpha  (pid 30)  org.example.Editor\n"
            "♪ alpha  (pid 5)  org.example.Editor\n"
            "♪ pid 50  (pid 50)  \n"
            "♪ öre  (pid 10)  öre\n");
}

TEST_F(AppCommandsTest, AppsSaysThatNothingPlays) {
  plugNothing();
  launch(40, "", false);
  EXPECT_EQ(run({"apps"}), 0);
  EXPECT_EQ(output(),
            "Audio processes (1 total, 0 playing now):\n\n"
            "  (nothing playing — start some audio and re-run)\n");
}

// Would notice: a volume that never reaches the engine, another output than the best, missing lines
// or meter, and a program that stays silent or tapped after Ctrl-C.
TEST_F(AppCommandsTest, AppvolPlaysOneProgramUntilCtrlC) {
  launch(7);
  float tapped = 0.0F;
  float untouched = 0.0F;
  letSoundThrough();
  queue.postAfter(0.5, [&] {
    hardware->runCycle(4);
    tapped = hardware->heardPeak("Interface") / volumeFactor(0.25F);
    untouched = hardware->heardPeak("Speakers");
  });
  float afterwards = 0.0F;
  atTheEnd = [&afterwards](SimulatedHardware& world) {
    world.runCycle(4);
    afterwards = world.heardPeak("Speakers");
  };
  EXPECT_EQ(interruptedAfter(1.5, {"appvol", "--pid", "+7", "--vol", "0.5"}), 0);
  EXPECT_EQ(output(),
            "  tap format: 48000 Hz, 2 ch, flags 0x9\n"
            "Tapping pid 7 at volume 0.5. That app's audio now runs through Orvelle.\n"
            "Ctrl-C to stop.\n"
            "  in:    2 cb/s  peak 0.100 ▮▮\n"
            "\nStopped.\n");
  EXPECT_EQ(console.errors, "");
  EXPECT_NEAR(tapped, std::tanh(0.5F * kPlayedLevel), 1e-6F);
  EXPECT_EQ(untouched, kPlayedLevel);
  EXPECT_EQ(afterwards, 2.0F * kPlayedLevel);
}

// Would notice: an output that the user names being passed over, and a wrong word that stops the
// command or becomes another volume than 1.0.
TEST_F(AppCommandsTest, AppvolTakesTheNamedOutputAndAnyNumberAsVolume) {
  launch(7);
  float heard = 0.0F;
  letSoundThrough();
  queue.postAfter(0.5, [&] {
    hardware->chooseDefaultOutput("Interface");
    hardware->runCycle(4);
    heard = hardware->heardPeak("Speakers");
  });
  EXPECT_EQ(
      interruptedAfter(1.0, {"appvol", "--pid", "7", "--vol", "loud", "--output", "Speakers"}), 0);
  EXPECT_EQ(console.lines.at(1),
            "Tapping pid 7 at volume 1.0. That app's audio now runs through Orvelle.");
  EXPECT_EQ(heard, kPlayedLevel);
}

// Would notice: a failure without a word or with another status, and a failed start that leaves the
// program silent.
TEST_F(AppCommandsTest, AppvolThatCannotWorkSaysWhy) {
  launch(7);
  EXPECT_EQ(run({"appvol", "--pid", "99999"}), 1);
  EXPECT_EQ(console.errors, "No audio process with pid 99999.\n");
  const auto prepareWorld = prepare;
  const auto expectFailure = [&](const std::function<void(SimulatedHardware&)>& spoil,
                                 const std::string& reason) {
    console.errors.clear();
    prepare = [&](SimulatedHardware& world) {
      prepareWorld(world);
      spoil(world);
    };
    EXPECT_EQ(run({"appvol", "--pid", "7"}), 1);
    EXPECT_EQ(console.errors, "App-volume tap failed: " + reason + "\n");
  };
  expectFailure([](auto& world) { world.inject({.kind = CallKind::startDevice, .status = 35}); },
                "AudioDeviceStart failed (OSStatus 35)");
  expectFailure(
      [](auto& world) { world.inject({.kind = CallKind::createProcessTap, .status = -1}); },
      "CreateProcessTap (recording permission?) failed (OSStatus -1)");
  expectFailure(
      [](auto& world) {
        world.unplug("Speakers");
        world.unplug("Interface");
      },
      "Audio device not found: ");
}

}  // namespace orvelle
