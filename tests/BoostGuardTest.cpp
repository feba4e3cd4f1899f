// The boost while it runs: other programs move the default output, devices come and go.
#include <gtest/gtest.h>

#include "tests/BoostRig.h"

namespace orvelle {

namespace {

class BoostGuardTest : public testing::Test {
 protected:
  BoostGuardTest() {
    hardware_.plug(stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB, 0.4F));
    rig_.queue.runUntilIdle();
    rig_.engine->showMeter = false;
    rig_.engine->onOutputChanged = [this](const AudioDeviceInfo& output) {
      told_.push_back(output.uid);
    };
  }

  void pump() { rig_.queue.advance(0.1); }

  /// No output may ever be louder than its own volume or the loopback's makes it.
  void expectNoBurst() {
    hardware_.afterChange = [this] {
      const float loudest = std::max(volumeFactor(0.5F), volumeFactor(0.4F)) * kSource * 1.001F;
      hardware_.runCycle(8);
      EXPECT_LE(hardware_.heardPeak(kSpeakers), loudest);
      EXPECT_LE(hardware_.heardPeak(kHeadphones), loudest);
    };
  }

  BoostRig rig_;
  SimulatedHardware& hardware_ = rig_.hardware;
  BoostEngine& engine_ = *rig_.engine;
  std::vector<std::string> told_;
  const float boosted_ = kSource * volumeFactor(0.5F);
};

}  // namespace

// Fault: the user's choice is undone instead of followed, the old output stays raised, or the new
// one is raised while programs still play into it.
TEST_F(BoostGuardTest, UserIsFollowedToAnotherRealOutput) {
  rig_.start();
  expectNoBurst();
  hardware_.clearLog();
  hardware_.chooseDefaultOutput(kHeadphones);
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
  EXPECT_EQ(engine_.currentOutputUID(), kHeadphones);
  EXPECT_EQ(told_, std::vector<std::string>{kHeadphones});
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
  EXPECT_EQ(rig_.volume(kHeadphones), 1.0F);
  EXPECT_FLOAT_EQ(rig_.heard(kHeadphones), boosted_);
  EXPECT_EQ(rig_.heard(kSpeakers), 0.0F);
  EXPECT_EQ(hardware_.aggregateCount(), 1U);
  const auto texts = hardware_.logTexts();
  const auto raised = std::ranges::find(texts, "volume 0 of headphones = 1.00");
  EXPECT_NE(std::find(texts.begin(), raised, "default output = " + kLoopback), raised);

  engine_.stop(true);
  EXPECT_EQ(rig_.volume(kHeadphones), 0.4F);
  EXPECT_EQ(hardware_.defaultOutputUID(), kHeadphones);
}

// Fault: choosing the output that is fed already rebuilds for nothing, or is left as the default
// and plays around the boost.
TEST_F(BoostGuardTest, DefaultSnapsBackFromTheOutputThatIsFed) {
  rig_.start();
  hardware_.clearLog();
  hardware_.chooseDefaultOutput(kSpeakers);
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
  EXPECT_TRUE(told_.empty());
  EXPECT_EQ(rig_.timesAsked("destroy aggregate"), 0);
}

// Fault: a device with a microphone is followed, which makes it switch to its call profile.
TEST_F(BoostGuardTest, DevicesWithInputsAreNeverFollowed) {
  hardware_.plug(headset("headset"));
  rig_.start();
  hardware_.chooseDefaultOutput("headset");
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
  EXPECT_EQ(engine_.currentOutputUID(), kSpeakers);
  EXPECT_TRUE(told_.empty());
  EXPECT_EQ(rig_.volume("headset"), 0.5F);
}

// Fault: after a failed rebuild the engine believes to feed the output and never tries again, keeps
// it raised, or forgets to say where the user went.
TEST_F(BoostGuardTest, FailedFollowIsToldAndTriedAgainAtTheNextChange) {
  for (const CallKind step :
       {CallKind::createAggregateDevice, CallKind::createIOProcID, CallKind::startDevice}) {
    SCOPED_TRACE(static_cast<int>(step));
    hardware_.chooseDefaultOutput(kSpeakers);
    rig_.start();
    pump();
    told_.clear();
    hardware_.inject({.kind = step});
    expectNoBurst();
    hardware_.chooseDefaultOutput(kHeadphones);
    pump();
    EXPECT_EQ(told_, std::vector<std::string>{kHeadphones});
    EXPECT_TRUE(engine_.isRunning());
    EXPECT_EQ(engine_.currentOutputUID(), "");
    EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
    EXPECT_EQ(rig_.volume(kHeadphones), 0.4F);
    EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);

    hardware_.clearFaults();
    hardware_.chooseDefaultOutput(kHeadphones);
    pump();
    EXPECT_EQ(engine_.currentOutputUID(), kHeadphones);
    EXPECT_FLOAT_EQ(rig_.heard(kHeadphones), boosted_);
    engine_.stop(true);
    EXPECT_EQ(rig_.volume(kHeadphones), 0.4F);
    EXPECT_EQ(hardware_.aggregateCount() + hardware_.ioProcCount(), 0U);
  }
}

// Fault: when the default output does not obey, the chosen output is raised all the same and plays
// the direct path at full volume.
TEST_F(BoostGuardTest, NothingIsRaisedWhileTheDefaultDoesNotObey) {
  rig_.start();
  hardware_.chooseDefaultOutput(kHeadphones);
  hardware_.inject({.kind = CallKind::setPropertyData,
                    .selector = kAudioHardwarePropertyDefaultOutputDevice,
                    .count = 6,
                    .effect = FaultEffect::ignore});
  expectNoBurst();
  pump();
  EXPECT_EQ(engine_.currentOutputUID(), kHeadphones);

  hardware_.inject({.kind = CallKind::setPropertyData,
                    .selector = kAudioHardwarePropertyDefaultOutputDevice,
                    .effect = FaultEffect::ignore});
  hardware_.chooseDefaultOutput(kSpeakers);
  pump();
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
  EXPECT_EQ(rig_.volume(kHeadphones), 0.4F);
}

// Fault: the guard works before the start has succeeded, after the stop, or without its loopback.
TEST_F(BoostGuardTest, GuardOnlyWorksWhileRunningWithItsLoopback) {
  hardware_.inject({.kind = CallKind::createAggregateDevice, .count = 1});
  EXPECT_NE(rig_.startError(), "");
  hardware_.chooseDefaultOutput(kHeadphones);
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kHeadphones);
  rig_.putRight();

  rig_.start();
  hardware_.inject({.kind = CallKind::removePropertyListener});
  engine_.stop(false);
  hardware_.chooseDefaultOutput(kHeadphones);
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kHeadphones);
  EXPECT_EQ(engine_.currentOutputUID(), "");

  hardware_.clearFaults();
  rig_.start();
  hardware_.unplug(kLoopback);
  pump();
  EXPECT_NE(hardware_.defaultOutputUID(), kLoopback);
  engine_.stop(true);
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
  EXPECT_EQ(hardware_.aggregateCount(), 0U);
}

// Fault: an output that vanishes takes the engine with it, and one that returns stays silent, comes
// back at full volume, or keeps that after the stop.
TEST_F(BoostGuardTest, VanishedOutputIsTakenAgainWhenItReturns) {
  rig_.start();
  const DeviceDescription asItWas = hardware_.unplug(kSpeakers);
  ASSERT_EQ(asItWas.volumes.at(0).value, 1.0F)
      << "the device keeps the volume that it was raised to";
  pump();
  EXPECT_TRUE(engine_.isRunning());
  EXPECT_EQ(engine_.currentOutputUID(), "");
  EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
  EXPECT_EQ(hardware_.aggregateCount() + hardware_.ioProcCount(), 0U);
  EXPECT_EQ(rig_.heard(kHeadphones), 0.0F);

  expectNoBurst();
  hardware_.plug(asItWas);
  pump();
  EXPECT_EQ(engine_.currentOutputUID(), kSpeakers);
  EXPECT_FLOAT_EQ(rig_.heard(kSpeakers), boosted_);
  engine_.stop(true);
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
  EXPECT_EQ(hardware_.aggregateCount() + hardware_.ioProcCount() + hardware_.listenerCount(), 0U);
}

// Fault: an output that vanished while raised is not lowered when the engine meets it again later.
TEST_F(BoostGuardTest, VolumeIsOwedToAnOutputThatWasAwayAtTheStop) {
  rig_.start();
  const DeviceDescription asItWas = hardware_.unplug(kSpeakers);
  pump();
  engine_.stop(true);
  EXPECT_EQ(hardware_.defaultOutputUID(), kHeadphones);
  hardware_.plug(asItWas);
  pump();
  rig_.startError(kLoopback, kHeadphones);
  engine_.stop(true);
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
  EXPECT_EQ(rig_.volume(kHeadphones), 0.4F);
}

// Fault: with the loopback gone, programs play straight into an output that stays raised; or the
// boost stays dead when the loopback returns, perhaps before anybody was told.
TEST_F(BoostGuardTest, OutputIsLoweredWhileTheLoopbackIsAway) {
  rig_.start();
  const DeviceDescription loopback = hardware_.unplug(kLoopback);
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kSpeakers);
  EXPECT_FLOAT_EQ(rig_.heard(kSpeakers), boosted_);
  EXPECT_EQ(hardware_.aggregateCount() + hardware_.ioProcCount(), 0U);

  expectNoBurst();
  hardware_.plug(loopback);
  pump();
  EXPECT_EQ(hardware_.defaultOutputUID(), kLoopback);
  EXPECT_EQ(engine_.currentOutputUID(), kSpeakers);
  EXPECT_FLOAT_EQ(rig_.heard(kSpeakers), boosted_);

  hardware_.afterChange = nullptr;
  hardware_.plug(hardware_.unplug(kLoopback));
  pump();
  EXPECT_FLOAT_EQ(rig_.heard(kSpeakers), boosted_);
  engine_.stop(true);
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
}

// Fault: a device that went and came back unnoticed is taken for the one that is fed already.
TEST_F(BoostGuardTest, ReturnedOutputIsFollowedThoughNobodyToldThatItWasGone) {
  rig_.start();
  hardware_.injectListenerFault({.isLost = true, .count = 2});
  hardware_.plug(hardware_.unplug(kSpeakers));
  pump();
  hardware_.chooseDefaultOutput(kSpeakers);
  pump();
  EXPECT_FLOAT_EQ(rig_.heard(kSpeakers), boosted_);
  engine_.stop(true);
  EXPECT_EQ(rig_.volume(kSpeakers), 0.5F);
}

// Fault: a follow away from a vanished output, or two changes before the guard is called, leave two
// aggregates or the wrong output fed.
TEST_F(BoostGuardTest, LastOfSeveralChangesCounts) {
  hardware_.plug(stereoOutput("screen", kAudioDeviceTransportTypeHDMI, 0.2F));
  rig_.start();
  hardware_.chooseDefaultOutput(kHeadphones);
  hardware_.unplug(kSpeakers);
  hardware_.chooseDefaultOutput("screen");
  pump();
  EXPECT_EQ(engine_.currentOutputUID(), "screen");
  EXPECT_EQ(rig_.volume(kHeadphones), 0.4F);
  EXPECT_EQ(hardware_.aggregateCount(), 1U);
  EXPECT_EQ(hardware_.ioProcCount(), 1U);
  EXPECT_FLOAT_EQ(rig_.heard("screen"), boosted_);
}

}  // namespace orvelle
