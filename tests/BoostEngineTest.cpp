// Starting and stopping the boost: what is asked of the hardware, in which order, and what is
// heard.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "orvelle/BoostEngine.h"
#include "tests/BoostRig.h"

namespace orvelle {

namespace {

const std::string kDefaultOnLoopback = "default output = " + kLoopback;
const std::string kDefaultOnSpeakers = "default output = " + kSpeakers;
const std::string kSpeakersRaised = "volume 0 of speakers = 1.00";
const std::string kSpeakersLowered = "volume 0 of speakers = 0.50";

class BoostEngineTest : public testing::Test {
 protected:
  BoostRig rig;
  SimulatedHardware& hardware = rig.hardware;
};

}  // namespace

// Fault: the speakers are raised while programs still play into them, or are left by the default
// output's way back before they are lowered: a burst of 18 dB.
TEST_F(BoostEngineTest, RealOutputIsOnlyLoudWhileTheLoopbackIsTheDefault) {
  const float direct = rig.heard(kSpeakers);
  hardware.afterChange = [&] { EXPECT_LE(rig.heard(kSpeakers), direct * 1.001F); };
  rig.start();
  EXPECT_LT(rig.placeOf(kDefaultOnLoopback), rig.placeOf(kSpeakersRaised));

  rig.engine->stop(true);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), direct);
  EXPECT_LT(rig.placeOf("destroy aggregate"), rig.placeOf(kSpeakersLowered));
  EXPECT_LT(rig.placeOf(kSpeakersLowered), rig.placeOf(kDefaultOnSpeakers));
}

// Fault: the aggregate has the loopback first (the callback would write into it), lacks drift
// compensation, or is visible to others.
TEST_F(BoostEngineTest, AggregateIsPrivateAndLedByTheRealOutput) {
  rig.start();
  EXPECT_EQ(rig.timesAsked(
                "create private aggregate app.orvelle.aggregate." + std::to_string(getpid()) +
                " (Orvelle Engine), master speakers, of speakers, " + kLoopback + " with drift"),
            1);
}

// Fault: the loopback keeps a volume or a mute from an earlier life, or takes the fed output's
// volume where another device was the default: the system's control would jump.
TEST_F(BoostEngineTest, LoopbackTakesOverTheLevelOfTheFormerDefault) {
  DeviceDescription headphones = stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB, 0.3F);
  headphones.mute.reset();
  hardware.plug(headphones);
  hardware.setMute(kLoopback, true);
  hardware.chooseDefaultOutput(kHeadphones);
  rig.start();
  EXPECT_EQ(rig.volume(kLoopback), 0.3F);
  EXPECT_FALSE(*hardware.device(kLoopback).mute);
  EXPECT_EQ(rig.volume(kHeadphones), 0.3F);
  EXPECT_EQ(rig.volume(kSpeakers), 1.0F);
}

// Fault: a loopback that has no mute switch is not trusted with the volume either.
TEST_F(BoostEngineTest, LoopbackNeedsNoMuteSwitch) {
  DeviceDescription loopback = hardware.unplug(kLoopback);
  loopback.mute.reset();
  hardware.plug(loopback);
  rig.start();
  EXPECT_EQ(rig.volume(kLoopback), 0.5F);
  EXPECT_EQ(rig.volume(kSpeakers), 1.0F);
}

// Fault: a device without a volume control is written to, or the boost refuses it.
TEST_F(BoostEngineTest, OutputWithoutVolumeControlIsLeftAlone) {
  DeviceDescription fixed = stereoOutput("fixed", kAudioDeviceTransportTypeHDMI);
  fixed.volumes.clear();
  fixed.mute.reset();
  hardware.plug(fixed);
  EXPECT_EQ(rig.startError(kLoopback, "fixed"), "");
  EXPECT_FLOAT_EQ(rig.heard("fixed"), kSource * volumeFactor(0.5F));
  rig.engine->stop(true);
  for (const std::string& text : hardware.logTexts()) {
    EXPECT_EQ(text.find("of fixed ="), std::string::npos) << text;
  }
}

// Fault: a muted output bursts into sound at start, cannot be unmuted by the system's control, or
// is left unmuted at stop.
TEST_F(BoostEngineTest, MuteTravelsWithTheVolume) {
  hardware.setMute(kSpeakers, true);
  hardware.afterChange = [&] { EXPECT_EQ(rig.heard(kSpeakers), 0.0F); };
  rig.start();
  hardware.afterChange = nullptr;
  EXPECT_TRUE(*hardware.device(kLoopback).mute);
  hardware.setMute(kLoopback, false);
  EXPECT_FLOAT_EQ(rig.heard(kSpeakers), kSource * volumeFactor(0.5F));

  rig.engine->stop(true);
  EXPECT_TRUE(*hardware.device(kSpeakers).mute);
  EXPECT_EQ(rig.heard(kSpeakers), 0.0F);
}

// Fault: an unknown loopback is noticed after something has been changed.
TEST_F(BoostEngineTest, UnknownLoopbackChangesNothing) {
  EXPECT_EQ(rig.startError("nowhere"), "Audio device not found: nowhere");
  EXPECT_TRUE(hardware.logTexts().empty());
  EXPECT_FALSE(rig.engine->isRunning());
}

// Fault: the wrong text or status, or a step that swallows its failure.
TEST_F(BoostEngineTest, EveryFailedStepSaysSo) {
  EXPECT_EQ(rig.startError(kLoopback, "nowhere"), "Audio device not found: nowhere");
  for (const auto& [kind, text] : std::vector<std::pair<CallKind, std::string>>{
           {CallKind::createAggregateDevice, "CreateAggregateDevice failed (OSStatus -50)"},
           {CallKind::createIOProcID, "CreateIOProcID failed (OSStatus -50)"},
           {CallKind::startDevice, "AudioDeviceStart failed (OSStatus -50)"}}) {
    hardware.clearFaults();
    hardware.inject({.kind = kind, .status = -50});
    EXPECT_EQ(rig.startError(), text);
    EXPECT_FALSE(rig.engine->isRunning());
    EXPECT_EQ(rig.engine->currentOutputUID(), "");
    EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
    rig.putRight();
  }
}

// Fault: a loopback that never becomes the default is tried for ever or given up at once, or a
// device is raised although programs still play into it.
TEST_F(BoostEngineTest, DefaultOutputIsAskedForTwentyTimes) {
  hardware.inject({.kind = CallKind::setPropertyData,
                   .selector = kAudioHardwarePropertyDefaultOutputDevice,
                   .effect = FaultEffect::ignore});
  const double before = rig.queue.now();
  EXPECT_EQ(rig.startError(), "SetDefaultOutput (loopback never took) failed (OSStatus -1)");
  EXPECT_EQ(rig.timesAsked(kDefaultOnLoopback), 20);
  EXPECT_NEAR(rig.queue.now() - before, 2.0, 1e-6);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  EXPECT_EQ(rig.volume(kLoopback), 1.0F);
  EXPECT_EQ(hardware.listenerCount(), 0U);
}

// Fault: a default output that takes its time is given up, or the speakers are raised meanwhile.
TEST_F(BoostEngineTest, DefaultOutputMayTakeItsTime) {
  hardware.inject({.kind = CallKind::setPropertyData,
                   .selector = kAudioHardwarePropertyDefaultOutputDevice,
                   .effect = FaultEffect::delay,
                   .delaySeconds = 0.45});
  const float direct = rig.heard(kSpeakers);
  hardware.afterChange = [&] { EXPECT_LE(rig.heard(kSpeakers), direct * 1.001F); };
  EXPECT_EQ(rig.startError(), "");
  EXPECT_EQ(rig.timesAsked(kDefaultOnLoopback), 5);
}

// Fault: a device that needs a moment is given up, or a dead one is waited for without end.
TEST_F(BoostEngineTest, DeviceStartIsTriedElevenTimes) {
  hardware.inject({.kind = CallKind::startDevice, .count = 10});
  const double before = rig.queue.now();
  EXPECT_EQ(rig.startError(), "");
  EXPECT_EQ(rig.timesAsked("start"), 1);
  // A back end may wait for a fresh aggregate, too.
  EXPECT_NEAR(rig.queue.now() - before, 0.1 + 10 * 0.1, 0.09);

  BoostRig dead;
  dead.hardware.inject({.kind = CallKind::startDevice, .status = 7});
  EXPECT_EQ(dead.startError(), "AudioDeviceStart failed (OSStatus 7)");
  EXPECT_EQ(dead.timesAsked("start -> 7"), 11);
  EXPECT_NEAR(dead.queue.now(), 0.1 + 10 * 0.1, 0.09);
}

// Fault: a second start builds a second aggregate, or forgets what the first has to put back.
TEST_F(BoostEngineTest, StartWhileRunningDoesNothing) {
  rig.start();
  hardware.clearLog();
  EXPECT_EQ(rig.startError("nowhere", "nowhere"), "");
  EXPECT_TRUE(hardware.logTexts().empty());
  rig.engine->stop(true);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

// Fault: stop without restoring moves the default output, leaves something behind, or makes the
// next start impossible.
TEST_F(BoostEngineTest, StopLeavesNothingBehindAndCanBeRepeated) {
  for (int round = 0; round < 3; ++round) {
    rig.start();
    EXPECT_EQ(rig.engine->currentOutputUID(), kSpeakers);
    rig.engine->stop(false);
    EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
    EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
    EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount() + hardware.listenerCount(), 0U);
    EXPECT_EQ(rig.engine->currentOutputUID(), "");
    hardware.chooseDefaultOutput(kSpeakers);
  }
}

// Fault: without a real output the way back is lost, or an object of id 0 is made the default.
TEST_F(BoostEngineTest, StopWithoutRealOutputsGoesBackToWhereItStarted) {
  hardware.plug(headset("headset"));
  hardware.chooseDefaultOutput("headset");
  rig.start();
  hardware.unplug(kSpeakers);
  rig.engine->stop(true);
  EXPECT_EQ(hardware.defaultOutputUID(), "headset");

  BoostRig empty;
  empty.hardware.unplug(kSpeakers);
  empty.hardware.clearLog();
  empty.engine->stop(true);
  EXPECT_TRUE(empty.hardware.logTexts().empty());
}

// Fault: the meter prints at another beat, keeps last second's peak, or outlives the boost.
TEST_F(BoostEngineTest, MeterPrintsOncePerSecond) {
  hardware.setVolume(kSpeakers, 1.0F);
  rig.start();
  rig.heard(kSpeakers);
  rig.heard(kSpeakers);
  rig.queue.advance(0.999);
  EXPECT_TRUE(rig.console.lines.empty());
  rig.queue.advance(0.001);
  rig.queue.advance(1.0);
  rig.engine->stop(true);
  rig.queue.advance(5.0);
  EXPECT_EQ(rig.console.lines, (std::vector<std::string>{"  in:    2 cb/s  peak 0.100 ▮▮",
                                                         "  in:    0 cb/s  peak 0.000 "}));

  rig.engine->showMeter = false;
  rig.start();
  rig.queue.advance(5.0);
  EXPECT_EQ(rig.console.lines.size(), 2U);
}

// Fault: a callback, listener or timer that outlives the engine calls into freed memory.
TEST_F(BoostEngineTest, EngineMayGoWhileCallbacksStillCome) {
  std::atomic<bool> isOver{false};
  std::thread ioThread([&] {
    while (!isOver) {
      hardware.runCycle(64);
    }
  });
  for (int round = 0; round < 100; ++round) {
    rig.start();
    hardware.inject({.kind = CallKind::removePropertyListener, .count = 2});
    hardware.chooseDefaultOutput(kSpeakers);
    rig.engine = std::make_unique<BoostEngine>(rig.host);
    hardware.chooseDefaultOutput(kSpeakers);
    rig.queue.advance(2.0);
  }
  isOver = true;
  ioThread.join();
  EXPECT_EQ(rig.heard(kSpeakers), kSource) << "a dead engine's aggregate still sounds";
}

}  // namespace orvelle
