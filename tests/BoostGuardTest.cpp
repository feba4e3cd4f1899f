// The boost while it runs: other programs move the default output, devices come and go.
#include <gtest/gtest.h>

#include "tests/BoostRig.h"

namespace orvelle {

namespace {

class BoostGuardTest : public testing::Test {
 protected:
  BoostGuardTest() {
    hardware.plug(stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB, 0.4F));
    rig.queue.runUntilIdle();
    rig.engine->showMeter = false;
    rig.engine->onOutputChanged = [this](const AudioDeviceInfo& output) {
      told.push_back(output.uid);
    };
  }

  void pump() { rig.queue.advance(0.1); }

  /// No output may ever be louder than its own volume or the loopback's makes it.
  void expectNoBurst() {
    hardware.afterChange = [this] {
      const float loudest = std::max(volumeFactor(0.5F), volumeFactor(0.4F)) * kSource * 1.001F;
      hardware.runCycle(8);
      EXPECT_LE(hardware.heardPeak(kSpeakers), loudest);
      EXPECT_LE(hardware.heardPeak(kHeadphones), loudest);
    };
  }

  BoostRig rig;
  SimulatedHardware& hardware = rig.hardware;
  BoostEngine& engine = *rig.engine;
  std::vector<std::string> told;
  const float boosted = kSource * volumeFactor(0.5F);
};

}  // namespace

// Fault: the user's choice is undone instead of followed, the old output stays raised, programs
// play around the boost for longer than it takes to notice, or into an output that is raised.
TEST_F(BoostGuardTest, UserIsFollowedToAnotherRealOutput) {
  rig.start();
  expectNoBurst();
  hardware.clearLog();
  hardware.chooseDefaultOutput(kHeadphones);
  pump();
  EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
  EXPECT_EQ(engine.currentOutputUID(), kHeadphones);
  EXPECT_EQ(told, std::vector<std::string>{kHeadphones});
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  EXPECT_EQ(rig.volume(kHeadphones), 1.0F);
  EXPECT_FLOAT_EQ(rig.heard(kHeadphones), boosted);
  EXPECT_EQ(rig.heard(kSpeakers), 0.0F);
  EXPECT_EQ(hardware.aggregateCount(), 1U);
  EXPECT_EQ(hardware.logTexts().at(0), "default output = " + kLoopback);

  engine.stop(true);
  EXPECT_EQ(rig.volume(kHeadphones), 0.4F);
  EXPECT_EQ(hardware.defaultOutputUID(), kHeadphones);
}

// Fault: choosing the output that is fed already rebuilds for nothing, or is left as the default
// and plays around the boost; or a device with a microphone is followed, which makes it switch to
// its call profile.
TEST_F(BoostGuardTest, DefaultSnapsBackFromWhatIsNotFollowed) {
  hardware.plug(headset("headset"));
  rig.start();
  hardware.clearLog();
  for (const std::string& uid : {kSpeakers, std::string("headset")}) {
    hardware.chooseDefaultOutput(uid);
    pump();
    EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
    EXPECT_EQ(engine.currentOutputUID(), kSpeakers);
  }
  EXPECT_TRUE(told.empty());
  EXPECT_EQ(rig.timesAsked("destroy aggregate"), 0);
  EXPECT_EQ(rig.volume("headset"), 0.5F);
}

// Fault: after a failed rebuild the engine believes to feed the output and never tries again, keeps
// it raised, or forgets to say where the user went.
TEST_F(BoostGuardTest, FailedFollowIsToldAndTriedAgainAtTheNextChange) {
  for (const CallKind step :
       {CallKind::createAggregateDevice, CallKind::createIOProcID, CallKind::startDevice}) {
    SCOPED_TRACE(static_cast<int>(step));
    hardware.chooseDefaultOutput(kSpeakers);
    rig.start();
    pump();
    told.clear();
    hardware.inject({.kind = step});
    expectNoBurst();
    hardware.chooseDefaultOutput(kHeadphones);
    pump();
    EXPECT_EQ(told, std::vector<std::string>{kHeadphones});
    EXPECT_TRUE(engine.isRunning());
    EXPECT_EQ(engine.currentOutputUID(), "");
    EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
    EXPECT_EQ(rig.volume(kHeadphones), 0.4F);
    EXPECT_EQ(rig.volume(kSpeakers), 0.5F);

    hardware.clearFaults();
    hardware.plug(headset("change" + std::to_string(static_cast<int>(step))));
    pump();
    EXPECT_EQ(engine.currentOutputUID(), kHeadphones);
    EXPECT_FLOAT_EQ(rig.heard(kHeadphones), boosted);
    engine.stop(true);
    EXPECT_EQ(rig.volume(kHeadphones), 0.4F);
    EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount(), 0U);
  }
}

// Fault: when the default output does not obey, the chosen output is raised all the same and plays
// the direct path at full volume.
TEST_F(BoostGuardTest, NothingIsRaisedWhileTheDefaultDoesNotObey) {
  rig.start();
  hardware.chooseDefaultOutput(kHeadphones);
  hardware.inject({.kind = CallKind::setPropertyData,
                   .selector = kAudioHardwarePropertyDefaultOutputDevice,
                   .count = 6,
                   .effect = FaultEffect::ignore});
  expectNoBurst();
  pump();
  EXPECT_EQ(engine.currentOutputUID(), kHeadphones);

  hardware.inject({.kind = CallKind::setPropertyData,
                   .selector = kAudioHardwarePropertyDefaultOutputDevice,
                   .effect = FaultEffect::ignore});
  hardware.chooseDefaultOutput(kSpeakers);
  pump();
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  EXPECT_EQ(rig.volume(kHeadphones), 0.4F);
}

// Fault: the output that is fed is chosen, cannot be left, and stays raised on the direct path.
TEST_F(BoostGuardTest, OutputIsLoweredWhenTheDefaultIsNotToBeHad) {
  rig.start();
  hardware.inject(
      {.kind = CallKind::setPropertyData, .selector = kAudioHardwarePropertyDefaultOutputDevice});
  hardware.chooseDefaultOutput(kSpeakers);
  pump();
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

// Fault: the guard works before the start has succeeded, or after the stop.
TEST_F(BoostGuardTest, GuardOnlyWorksWhileRunning) {
  hardware.inject({.kind = CallKind::createAggregateDevice, .count = 1});
  EXPECT_NE(rig.startError(), "");
  hardware.chooseDefaultOutput(kHeadphones);
  pump();
  EXPECT_EQ(hardware.defaultOutputUID(), kHeadphones);
  rig.putRight();

  rig.start();
  hardware.inject({.kind = CallKind::removePropertyListener});
  engine.stop(false);
  hardware.chooseDefaultOutput(kHeadphones);
  pump();
  EXPECT_EQ(hardware.defaultOutputUID(), kHeadphones);
  EXPECT_EQ(engine.currentOutputUID(), "");
}

// Fault: an output that vanishes takes the engine with it, and one that returns stays silent, comes
// back at full volume, or keeps that after the stop.
TEST_F(BoostGuardTest, VanishedOutputIsTakenAgainWhenItReturns) {
  rig.start();
  const DeviceDescription asItWas = hardware.unplug(kSpeakers);
  ASSERT_EQ(asItWas.volumes.at(0).value, 1.0F)
      << "the device keeps the volume that it was raised to";
  pump();
  EXPECT_TRUE(engine.isRunning());
  EXPECT_EQ(engine.currentOutputUID(), "");
  EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
  EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount(), 0U);
  EXPECT_EQ(rig.heard(kHeadphones), 0.0F);

  expectNoBurst();
  hardware.plug(asItWas);
  pump();
  EXPECT_EQ(engine.currentOutputUID(), kSpeakers);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);
  // Whoever stores volumes gives it the former one back, or somebody chooses another one.
  for (const auto& [given, kept] : {std::pair(0.5F, 1.0F), std::pair(0.7F, 0.7F)}) {
    hardware.plug(hardware.unplug(kSpeakers));
    pump();
    hardware.setVolume(kSpeakers, given);
    rig.queue.advance(1.0);
    EXPECT_EQ(rig.volume(kSpeakers), kept);
  }
  engine.stop(true);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount() + hardware.listenerCount(), 0U);
}

// Fault: an output that vanished raised comes back as loud, and is forgotten because the user has
// gone elsewhere meanwhile.
TEST_F(BoostGuardTest, ReturnedOutputIsLoweredThoughAnotherIsFed) {
  rig.start();
  const DeviceDescription raised = hardware.unplug(kSpeakers);
  pump();
  hardware.chooseDefaultOutput(kHeadphones);
  pump();
  hardware.plug(raised);
  pump();
  EXPECT_EQ(engine.currentOutputUID(), kHeadphones);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

// Fault: with the loopback gone, programs play straight into an output that stays raised; or the
// boost stays dead when the loopback returns, perhaps before anybody was told; or the volume that
// it was raised to is taken for the user's, and stays for good.
TEST_F(BoostGuardTest, OutputIsLoweredWhileTheLoopbackIsAway) {
  rig.start();
  const DeviceDescription loopback = hardware.unplug(kLoopback);
  pump();
  EXPECT_EQ(hardware.defaultOutputUID(), kSpeakers);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);
  EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount(), 0U);

  expectNoBurst();
  hardware.plug(loopback);
  pump();
  EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
  EXPECT_EQ(engine.currentOutputUID(), kSpeakers);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);

  // Somebody has stored the volume that it was raised to.
  hardware.afterChange = nullptr;
  hardware.unplug(kLoopback);
  pump();
  hardware.setVolume(kSpeakers, 1.0F);
  hardware.plug(loopback);
  pump();
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);
  hardware.plug(hardware.unplug(kLoopback));
  pump();
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);
  engine.stop(true);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

// Fault: what the user has set while the boost ran is lost with the loopback, and the sound jumps
// to the volume from before the start, or is heard though it was muted.
TEST_F(BoostGuardTest, NewLoopbackHasTheLevelOfTheFormerOne) {
  rig.start();
  hardware.setVolume(kLoopback, 0.2F);
  hardware.setMute(kLoopback, true);
  hardware.unplug(kLoopback);
  hardware.plug(loopbackDevice(kLoopback));
  pump();
  EXPECT_EQ(rig.volume(kLoopback), 0.2F);
  EXPECT_EQ(rig.hal.outputMute(hardware.id(kLoopback)), true);
  EXPECT_EQ(rig.volume(kSpeakers), 1.0F);
}

// Fault: while a new loopback does not take a volume, the output is raised all the same; it stays
// low for ever; or what a loopback is given is the volume that the one before it came with, or the
// one that its output has vanished with.
TEST_F(BoostGuardTest, OutputIsRaisedOnceTheNewLoopbackHasTakenItsLevel) {
  const auto loseAll = [this] {
    hardware.unplug(kLoopback);
    const DeviceDescription output = hardware.unplug(kSpeakers);
    pump();
    hardware.plug(loopbackDevice(kLoopback));
    hardware.plug(output);
  };
  const auto refuseVolumeOf = [this](const std::string& uid) {
    hardware.inject({.kind = CallKind::setPropertyData,
                     .selector = kAudioDevicePropertyVolumeScalar,
                     .object = hardware.id(uid),
                     .effect = FaultEffect::ignore});
  };
  rig.start();
  expectNoBurst();
  for (int loss = 0; loss < 2; ++loss) {
    loseAll();
    refuseVolumeOf(kLoopback);
    pump();
    EXPECT_EQ(engine.currentOutputUID(), kSpeakers);
    EXPECT_EQ(rig.volume(kLoopback), 1.0F);
    EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  }
  hardware.clearFaults();
  rig.queue.advance(0.3);
  EXPECT_EQ(rig.volume(kLoopback), 0.5F);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);

  loseAll();
  refuseVolumeOf(kLoopback);
  pump();
  hardware.setVolume(kSpeakers, 1.0F);
  loseAll();
  refuseVolumeOf(kSpeakers);
  pump();
  EXPECT_EQ(rig.volume(kLoopback), 0.5F);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);
  hardware.clearFaults();
  engine.stop(true);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

// Fault: a device that went and came back unnoticed is taken for the one that is fed already.
TEST_F(BoostGuardTest, ReturnedOutputIsFollowedThoughNobodyToldThatItWasGone) {
  rig.start();
  pump();
  hardware.injectListenerFault({.isLost = true, .count = 2});
  hardware.plug(hardware.unplug(kSpeakers));
  pump();
  hardware.chooseDefaultOutput(kSpeakers);
  pump();
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), boosted);
  engine.stop(true);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

}  // namespace orvelle
