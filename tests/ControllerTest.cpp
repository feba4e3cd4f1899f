// The life of the boost behind the panel: Off, Starting, On, and back, whatever comes between.
#include <cmath>
#include <filesystem>
#include <optional>

#include "orvelle/platform/ThreadQueue.h"
#include "tests/ControllerRig.h"

namespace orvelle {
namespace {

using Controller = ControllerRig;

constexpr const char* kNotResponding =
    "Audio system is not responding. Quit Orvelle and restart Core Audio, then try again.";

// Would catch a start that blocks the main thread, a switch that shows what is not yet true, and
// whatever a start or a stop forgets.
TEST_F(Controller, SwitchesOnAndOff) {
  EXPECT_EQ(controller->deviceName(), "speakers name");
  std::vector<std::string> told;
  QObject::connect(controller.get(), &AudioController::isOnChanged, [&] {
    told.push_back(controller->isOn() ? "on" : "off");
    EXPECT_EQ(hardware.ioProcCount(), controller->isOn() ? 1U : 0U) << "told before it is so";
  });
  controller->toggle();
  EXPECT_TRUE(controller->startInProgress());
  EXPECT_EQ(hardware.defaultOutputUID(), kSpeakers) << "on the main thread";
  controller->toggle();
  queue.advance(0.2);
  EXPECT_TRUE(controller->isOn() && !controller->startInProgress())
      << "the second click counts for nothing";
  EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
  EXPECT_EQ(heard(), 2.0F * kSource * kHalfVolume);
  EXPECT_EQ(services.activities, std::vector<std::string>{"Orvelle continuous audio boost"});
  queue.advance(8.0);
  EXPECT_TRUE(controller->lastError().isNull()) << "the watchdog has barked at nothing";
  controller->setBoost(4.0);
  EXPECT_EQ(heard(), 4.0F * kSource * kHalfVolume);
  controller->toggle();
  expectOff();
  EXPECT_EQ(told, (std::vector<std::string>{"on", "off"}));
  EXPECT_EQ(heard(), kSource * kHalfVolume);
}

// Would catch a failure that the user does not hear of, and one that leaves all sound in a loopback
// that nobody reads.
TEST_F(Controller, PutsTheSystemRightAfterAFailedStart) {
  struct Case {
    Fault fault;
    std::string problem;
  };
  const Case cases[] = {
      {{.kind = CallKind::createAggregateDevice, .status = -5},
       "CreateAggregateDevice failed (OSStatus -5)"},
      {{.kind = CallKind::startDevice, .status = -7}, "AudioDeviceStart failed (OSStatus -7)"},
      {{.kind = CallKind::setPropertyData, .selector = kAudioHardwarePropertyDefaultOutputDevice},
       "SetDefaultOutput (loopback never took) failed (OSStatus -1)"}};
  for (const Case& each : cases) {
    hardware.inject(each.fault);
    controller->toggle();
    queue.advance(4.0);
    hardware.clearFaults();
    EXPECT_EQ(controller->lastError().toStdString(), "Couldn't start: " + each.problem);
    EXPECT_EQ(console.lines.back(), "Orvelle start failed: " + each.problem);
    expectOff();
  }
  EXPECT_EQ(services.count("alert"), 3U);
  switchOn();
  EXPECT_TRUE(controller->lastError().isNull());
}

// Would catch a start without an output that shows as running, and a device name without a device.
TEST_F(Controller, SaysThatThereIsNoOutput) {
  const DeviceDescription speakers = hardware.unplug(kSpeakers);
  queue.runUntilIdle();
  EXPECT_EQ(controller->deviceName(), "—");
  controller->toggle();
  queue.advance(0.1);
  EXPECT_EQ(controller->lastError(), "No output device found.");
  EXPECT_FALSE(controller->startInProgress());
  EXPECT_EQ(services.count("alert"), 1U);
  hardware.plug(speakers);
  hardware.chooseDefaultOutput(kSpeakers);
  queue.runUntilIdle();
  EXPECT_EQ(controller->deviceName(), "speakers name");
}

// Would catch a panel that fights with a boost in a terminal over the default output.
TEST_F(Controller, LeavesAnotherBoostAlone) {
  class OtherInstance final : public UndoKeeper {
   public:
    void keep(const std::string& /*owner*/, const UndoRecord& /*record*/) override {}
    [[nodiscard]] std::optional<std::int32_t> boostingProcess() const override { return process; }
    std::optional<std::int32_t> process;
  } other;
  controller = std::make_unique<AudioController>(
      ControllerHost{{hardware, queue, worker, console, other}, worker, defaults, services, names});
  switchOn();
  controller->toggle();
  other.process = 4711;
  hardware.chooseDefaultOutput(kLoopback);
  hardware.clearLog();
  controller->toggle();
  queue.advance(0.1);
  EXPECT_EQ(controller->lastError(),
            "Couldn't start: Orvelle is boosting already (process 4711). Stop that one first.");
  EXPECT_TRUE(controller->shutdown());
  EXPECT_TRUE(hardware.log().empty());
  controller.reset();
  hardware.chooseDefaultOutput(kSpeakers);
}

// Would catch a watchdog that is early, late, or ends what it only watches.
TEST_F(Controller, TellsAfterEightSecondsThatTheAudioSystemHangs) {
  hangNextStartFor(30.0);
  controller->toggle();
  queue.advance(4.0);
  controller->toggle();
  queue.advance(3.999);
  EXPECT_TRUE(controller->lastError().isNull());
  queue.advance(0.001);
  EXPECT_EQ(controller->lastError(), kNotResponding);
  EXPECT_EQ(services.count("alert"), 1U);
  queue.advance(21.0);
  EXPECT_TRUE(controller->startInProgress());
  queue.advance(1.2);
  EXPECT_TRUE(controller->isOn()) << "late, but welcome";
  EXPECT_TRUE(controller->lastError().isNull());
}

// Would catch a stop that waits for the hanging call, an engine that goes on behind a panel that
// shows Off, and a start that runs beside the one before it.
TEST_F(Controller, StopsWhileTheAudioSystemHangs) {
  hangNextStartFor(30.0);
  controller->toggle();
  queue.advance(9.0);
  const double before = queue.now();
  hardware.clearLog();
  controller->stop();
  EXPECT_EQ(queue.now(), before) << "the main thread has waited";
  EXPECT_FALSE(controller->startInProgress());
  queue.advance(30.0);
  expectOff();
  EXPECT_FALSE(wasAsked("volume 0 of speakers = 1.00")) << "it has gone on instead of giving up";

  hangNextStartFor(30.0);
  controller->start();
  queue.advance(1.0);
  controller->stop();
  controller->start();
  controller->setBoost(3.0);
  queue.advance(7.9);
  EXPECT_FALSE(controller->lastError() == kNotResponding && !controller->startInProgress());
  EXPECT_EQ(services.count("alert"), 1U) << "for the start that was stopped";
  queue.advance(7.1);
  EXPECT_TRUE(controller->startInProgress());
  EXPECT_EQ(controller->lastError(), kNotResponding);
  queue.advance(20.0);
  EXPECT_TRUE(controller->isOn());
  EXPECT_EQ(hardware.aggregateCount(), 1U);
  EXPECT_EQ(heard(), 3.0F * kSource * kHalfVolume);
}

// Would catch an older result that is taken for that of the latest start.
TEST_F(Controller, HeedsTheLatestStartOnly) {
  hangNextStartFor(1.0);
  hardware.inject({.kind = CallKind::createAggregateDevice, .count = 1});
  controller->start();
  controller->start();
  queue.advance(0.9);
  controller->start();
  queue.advance(3.0);
  EXPECT_TRUE(controller->isOn()) << "the first one failed";
  EXPECT_TRUE(controller->lastError().isNull());
  controller->start();
  controller->stop();
  queue.advance(1.0);
  expectOff();

  // The output goes while the second start waits for the first one, which then succeeds.
  hangNextStartFor(1.0, 3);
  controller->start();
  queue.advance(0.5);
  controller->start();
  hardware.unplug(kSpeakers);
  queue.advance(2.0);
  EXPECT_EQ(controller->lastError(), "No output device found.");
  EXPECT_FALSE(controller->isOn());
  EXPECT_EQ(hardware.ioProcCount(), 0U);
  hardware.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 0.5F));
  hardware.chooseDefaultOutput(kSpeakers);
}

// Would catch a device whose settings are taken for those of another, and a name that stays.
TEST_F(Controller, TakesEachDevicesSettingsAlong) {
  switchOn();
  controller->setBoost(3.0);
  hardware.plug(stereoOutput("buds", kAudioDeviceTransportTypeBluetooth, 0.25F));
  queue.advance(3.0);
  EXPECT_EQ(controller->deviceName(), "buds name");
  EXPECT_EQ(controller->boost(), 3.0) << "a new device begins as the old one was";
  controller->setBoost(1.5);
  EXPECT_FLOAT_EQ(heard("buds"), 1.5F * kSource * kHalfVolume);
  hardware.unplug("buds");
  queue.advance(3.0);
  EXPECT_EQ(controller->deviceName(), "speakers name");
  EXPECT_EQ(heard(), 3.0F * kSource * kHalfVolume);
  hardware.plug(stereoOutput("usb", kAudioDeviceTransportTypeUSB, 0.25F));
  queue.advance(3.0);
  hardware.chooseDefaultOutput(kSpeakers);
  queue.advance(3.0);
  EXPECT_EQ(controller->deviceName(), "speakers name") << "the user's choice is followed";

  controller->shutdown();
  makeController();
  EXPECT_EQ(controller->boost(), 3.0);
}

// Would catch a raised output that the user plays to directly, because what he did while the start
// had the engine was never looked at.
TEST_F(Controller, SeesWhatHappensDuringAStart) {
  for (int call = 0; call < 6; ++call) {
    SCOPED_TRACE(call);
    hangNextStartFor(1.0, call);
    controller->start();
    queue.advance(0.5);
    hardware.chooseDefaultOutput(kSpeakers);
    queue.advance(2.0);
    EXPECT_TRUE(controller->isOn());
    EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
    EXPECT_FLOAT_EQ(heard(), 2.0F * kSource * kHalfVolume);
    controller->stop();
  }
}

// Would catch a new output that begins with the other one's gain, and a meter that keeps the last
// level of an output that is gone.
TEST_F(Controller, StartsEachOutputNoLouderThanItIsMeantToBe) {
  switchOn();
  hardware.plug(stereoOutput("buds", kAudioDeviceTransportTypeBluetooth, 0.5F));
  queue.advance(3.0);
  controller->setBoost(1.0);
  hardware.unplug("buds");
  queue.advance(3.0);
  controller->setBoost(5.0);
  float loudest = 0.0F;
  hardware.afterChange = [&] { loudest = std::max(loudest, heard("buds")); };
  hardware.plug(stereoOutput("buds", kAudioDeviceTransportTypeBluetooth, 0.5F));
  queue.advance(3.0);
  hardware.afterChange = nullptr;
  EXPECT_FLOAT_EQ(heard("buds"), kSource * kHalfVolume);
  EXPECT_LE(loudest, kSource * kHalfVolume * 1.001F);

  services.windows = {{true, true, 300.0, 620.0}};
  hardware.unplug("buds");
  hardware.unplug(kSpeakers);
  queue.advance(20.0);
  EXPECT_LT(controller->level(), 1e-6F);
  controller->stop();
  hardware.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 0.5F));
  queue.runUntilIdle();
  EXPECT_EQ(hardware.defaultOutputUID(), kSpeakers) << "what could not be put back then, is now";
}

// Would catch a warning that stays when its driver is gone, or comes with the next start only.
TEST_F(Controller, NoticesDriversWithTheNextDevice) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(testing::TempDir()) / "orvelle-controller-drivers";
  controller = std::make_unique<AudioController>(ControllerHost{
      {hardware, queue, worker, console}, worker, defaults, services, names, folder});
  EXPECT_TRUE(controller->activeHALConflicts().empty());
  fs::create_directories(folder / "BoomAudio.driver");
  hardware.plug(stereoOutput("usb", kAudioDeviceTransportTypeUSB));
  queue.runUntilIdle();
  EXPECT_EQ(controller->activeHALConflicts(), QStringList{"BoomAudio.driver"});
  fs::remove_all(folder);
  hardware.unplug("usb");
  queue.runUntilIdle();
  EXPECT_TRUE(controller->activeHALConflicts().empty());
}

// Would catch a tapped application that is left behind on an output that is none any more.
TEST_F(Controller, TakesTapsAlong) {
  const auto provider = [this] {
    const auto output = DeviceRouter::preferredOutput(HAL(hardware));
    return output ? std::optional(output->uid) : std::nullopt;
  };
  controller->apps.push_back(std::make_unique<AppAudio>(
      100, player, "Player", EngineHost{hardware, queue, queue, console}, provider));
  controller->apps.back()->setVolume(0.5);
  ASSERT_EQ(hardware.tapCount(), 1U);
  switchOn();
  EXPECT_FLOAT_EQ(heard(), std::tanh(0.5F * kSource) * kHalfVolume);
  hardware.plug(stereoOutput("usb", kAudioDeviceTransportTypeUSB, 1.0F));
  controller->toggle();
  EXPECT_GT(heard("usb"), 0.0F) << "the restored output";
  hardware.inject({.kind = CallKind::createProcessTap});
  controller->toggle();
  queue.advance(0.5);
  EXPECT_EQ(hardware.tapCount(), 0U) << "half a tap silences the application";
}

// Would catch a callback, timer or result that reaches a controller which is no more, and one that
// leaves the system as it was while it ran.
TEST_F(Controller, EndsWellAtAnyMoment) {
  for (const double seconds : {0.0, 0.05, 0.15, 1.0, 7.0, 20.0}) {
    SCOPED_TRACE(seconds);
    controller->setIdleStandbyEnabled(true);
    hardware.setPlaying(player, false);
    controller->start();
    queue.advance(seconds);
    EXPECT_TRUE(controller->shutdown());
    if (seconds < 5.0) {
      controller.reset();  // the other times it lives on, and must keep still
    }
    EXPECT_EQ(hardware.defaultOutputUID(), kSpeakers);
    EXPECT_EQ(volume(kSpeakers), 0.5F);
    hardware.setPlaying(player, true);
    hardware.plug(stereoOutput("usb", kAudioDeviceTransportTypeUSB, 0.5F));
    hardware.clearLog();
    queue.advance(10.0);
    EXPECT_TRUE(hardware.log().empty());
    hardware.unplug("usb");
    makeController();
  }
  hangNextStartFor(30.0);
  controller->start();
  queue.advance(1.0);
  const double before = queue.now();
  EXPECT_FALSE(controller->shutdown()) << "somebody has to know that it hangs";
  EXPECT_LT(queue.now() - before, 6.0);
}

/// Waits, but not for long.
class HastyClock final : public SystemClock {
 public:
  void sleep(double /*seconds*/) override { SystemClock::sleep(0.0002); }
};

// Would catch, with the help of the thread sanitizer, a start and a stop that touch the engine at
// the same time.
TEST_F(Controller, KeepsStartAndStopApart) {
  controller.reset();
  HastyClock clock;
  {
    ThreadQueue background;
    AudioController threaded(
        {{hardware, queue, clock, console}, background, defaults, services, names});
    for (int round = 0; round < 200; ++round) {
      threaded.start();
      for (int turn = 0; turn < round % 40; ++turn) {
        clock.sleep(0.0);
        queue.advance(0.05);
      }
      threaded.setBoost(1.0 + round / 100.0);
      hardware.chooseDefaultOutput(round % 2 == 0 ? kSpeakers : kLoopback);
      round % 3 == 0 ? threaded.start() : threaded.stop();
      EXPECT_LE(hardware.aggregateCount(), 1U);
    }
    EXPECT_TRUE(threaded.shutdown());
  }
  EXPECT_EQ(volume(kSpeakers), 0.5F);
}

}  // namespace
}  // namespace orvelle
