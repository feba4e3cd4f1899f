// Every hardware call failing in turn, at every step of start, guard and stop, and throughout a
// session of the router and of a tap.
#include <gtest/gtest.h>

#include "orvelle/DeviceRouter.h"
#include "orvelle/ProcessTapEngine.h"
#include "tests/BoostRig.h"

namespace orvelle {

namespace {

constexpr float kGain = 2.0F;
const std::string kHeadset = "headset";
const std::string kVisitor = "visitor";

/// A world in which one thing is done while calls fail, and what must hold during and after it.
class FaultRun {
 public:
  FaultRun() {
    DeviceDescription headphones = stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB);
    headphones.volumes = {{1, {0.4F}}, {2, {0.4F}}};
    headphones.mute = true;
    rig.hardware.plug(headphones);
    rig.hardware.plug(headset(kHeadset));
    rig.queue.runUntilIdle();
    rig.engine->showMeter = false;
    rig.engine->gain = kGain;
    rig.hardware.afterChange = [this] { listen(); };
  }

  /// Starts as a program does that gives up when starting fails.
  void start(const std::string& outputUID = kSpeakers) {
    if (!rig.startError(kLoopback, outputUID).empty()) {
      rig.putRight();
    }
  }

  void pump(double seconds = 0.2) { rig.queue.advance(seconds); }

  /// A better output than all others comes for a while.
  void visit(const std::function<void()>& check) {
    rig.hardware.plug(stereoOutput(kVisitor, kAudioDeviceTransportTypeBluetooth, 0.5F));
    pump(2.5);
    check();
    rig.hardware.unplug(kVisitor);
    pump(2.5);
    check();
  }

  void startRouter() {
    const std::size_t before = rig.hardware.listenerCount();
    router.start();
    observers = rig.hardware.listenerCount() - before;
  }

  void startTap() {
    try {
      tap.start(tappedBehindDoor, kHeadphones);
      // A back end may wait for the first sound before it takes the program off its normal path.
      rig.hardware.runCycle(4);
      rig.queue.advance(0.1);
    } catch (const EngineError&) {
      tap.teardown();
    }
  }

  void expectOrder(bool isFaultless) {
    rig.hardware.clearFaults();
    rig.putRight();
    const std::string restored = rig.hardware.defaultOutputUID();
    if (!hasAskedForLoopback()) {
      EXPECT_EQ(restored, kSpeakers);
    } else if (isFaultless) {
      EXPECT_EQ(restored, kHeadphones);
    } else {
      EXPECT_NE(restored, kLoopback) << "the best one perhaps could not be asked";
    }
    for (const std::string& uid : {kSpeakers, kHeadphones, kHeadset}) {
      const DeviceDescription device = rig.hardware.device(uid);
      EXPECT_EQ(device.mute, uid == kHeadphones) << uid;
      for (const auto& [element, control] : device.volumes) {
        EXPECT_EQ(control.value, uid == kHeadphones ? 0.4F : 0.5F) << uid << " element " << element;
      }
    }
    EXPECT_LE(rig.hardware.aggregateCount(), refused(CallKind::destroyAggregateDevice));
    EXPECT_LE(rig.hardware.ioProcCount(), refused(CallKind::destroyIOProcID));
    EXPECT_LE(rig.hardware.listenerCount(), observers + refused(CallKind::removePropertyListener));
    EXPECT_LE(rig.hardware.tapCount(), refused(CallKind::destroyProcessTap));

    rig.hardware.chooseDefaultOutput(kSpeakers);
    EXPECT_EQ(rig.startError(), "") << "the engine cannot start any more";
    EXPECT_NEAR(rig.heard(kSpeakers), kSource * volumeFactor(0.5F) * kGain, 1e-4F);
    rig.hardware.afterChange = nullptr;
  }

  BoostRig rig;
  const EngineHost host = rig.host;
  DeviceRouter router{host, *rig.engine};
  std::size_t observers = 0;  ///< of the router: never removed
  ProcessTapEngine tap{host};
  AudioObjectID tapped = kAudioObjectUnknown;
  AudioObjectID tappedBehindDoor = kAudioObjectUnknown;

 private:
  /// Nobody may hear more than the boost asked for, at any moment.
  void listen() {
    rig.hardware.runCycle(4);
    const float loudest = kSource * volumeFactor(0.5F) * kGain * 1.001F;
    for (const std::string& uid : {kSpeakers, kHeadphones, kHeadset, kVisitor}) {
      EXPECT_LE(rig.hardware.heardPeak(uid), loudest)
          << uid << " after " << rig.hardware.logTexts().back();
    }
  }

  /// A start that failed before it touched the default output leaves that to the user.
  [[nodiscard]] bool hasAskedForLoopback() const {
    return std::ranges::any_of(rig.hardware.logTexts(), [](const std::string& text) {
      return text.starts_with("default output = " + kLoopback);
    });
  }

  /// What the hardware did not let go of, the engine cannot be blamed for.
  std::size_t refused(CallKind kind) const {
    const auto log = rig.hardware.log();
    return static_cast<std::size_t>(std::ranges::count_if(log, [kind](const CallRecord& call) {
      return call.target.kind == kind && call.status != kAudioHardwareNoError;
    }));
  }
};

/// Runs `action` once for each of its calls, with that call failing.
void failEachCallOf(const std::function<void(FaultRun&)>& prepare,
                    const std::function<void(FaultRun&)>& action) {
  FaultRun faultless;
  prepare(faultless);
  const std::uint64_t before = faultless.rig.hardware.callCount();
  action(faultless);
  const std::uint64_t calls = faultless.rig.hardware.callCount() - before;
  faultless.expectOrder(true);
  ASSERT_GT(calls, 10U);
  for (const FaultEffect effect : {FaultEffect::fail, FaultEffect::failAfterwards}) {
    for (std::uint64_t call = 0; call < calls; call += failedCallStride()) {
      SCOPED_TRACE(testing::Message() << "call " << call << " of " << calls << " fails"
                                      << (effect == FaultEffect::fail ? "" : " afterwards"));
      FaultRun run;
      prepare(run);
      run.rig.hardware.inject({.skip = call, .count = 1, .effect = effect});
      action(run);
      run.expectOrder(false);
      if (testing::Test::HasFailure()) {
        return;
      }
    }
  }
}

}  // namespace

// Faults of all six cases: a failing call leaves an output loud, a volume or mute changed, the
// default output on the loopback, an object behind, or the engine unable to start again.

TEST(BoostFaultTest, EachCallOfStartMayFail) {
  failEachCallOf([](FaultRun&) {}, [](FaultRun& run) { run.start(); });
}

TEST(BoostFaultTest, EachCallOfASnapBackAndAFollowMayFail) {
  failEachCallOf([](FaultRun& run) { run.start(); },
                 [](FaultRun& run) {
                   for (const std::string& uid : {kHeadset, kHeadphones}) {
                     run.rig.hardware.chooseDefaultOutput(uid);
                     run.pump();
                   }
                 });
}

TEST(BoostFaultTest, EachCallOfAVanishAndReturnMayFail) {
  failEachCallOf([](FaultRun& run) { run.start(); },
                 [](FaultRun& run) {
                   const DeviceDescription speakers = run.rig.hardware.unplug(kSpeakers);
                   run.pump();
                   run.rig.hardware.plug(speakers);
                   run.pump();
                 });
}

TEST(BoostFaultTest, EachCallOfStopMayFail) {
  for (const std::string& uid : {kSpeakers, kHeadphones}) {
    failEachCallOf([&uid](FaultRun& run) { run.start(uid); },
                   [](FaultRun& run) { run.rig.engine->stop(true); });
  }
}

// Also: a boost that stays silent although the router could have moved it.
TEST(BoostFaultTest, EachCallOfARouterSessionMayFail) {
  failEachCallOf(
      [](FaultRun&) {},
      [](FaultRun& run) {
        run.start(kHeadphones);
        run.startRouter();
        const bool isFollowed = run.rig.engine->isRunning() && run.observers == 1;
        run.visit([&] { EXPECT_TRUE(!isFollowed || !run.rig.engine->currentOutputUID().empty()); });
        run.rig.engine->stop(true);
      });
}

// Also: a program that stays silent, or that is heard twice, when its tap has ended.
TEST(BoostFaultTest, EachCallOfATapSessionMayFail) {
  failEachCallOf(
      [](FaultRun& run) {
        ProcessDescription program;
        program.signal = [](std::int64_t, std::uint32_t) { return kSource; };
        run.tapped = run.rig.hardware.launch(program);
        run.tappedBehindDoor = behindDoor(run.tapped, run.rig.hardware, *run.rig.door);
        run.rig.hardware.setMute(kHeadphones, false);
        run.tap.volume = 0.5F;
      },
      [](FaultRun& run) {
        SimulatedHardware& hardware = run.rig.hardware;
        const float direct = run.rig.heard(kSpeakers);
        run.startTap();
        EXPECT_FLOAT_EQ(run.rig.heard(kSpeakers), run.tap.isRunning() ? direct / 2 : direct);
        const DeviceDescription headphones = hardware.unplug(kHeadphones);
        run.pump();
        EXPECT_FLOAT_EQ(run.rig.heard(kSpeakers), direct);
        hardware.plug(headphones);
        run.pump();
        EXPECT_EQ(run.rig.heard(kHeadphones) > 0.0F, run.tap.isRunning());
        run.tap.stop();
        EXPECT_FLOAT_EQ(run.rig.heard(kSpeakers), direct);
        EXPECT_EQ(run.rig.heard(kHeadphones), 0.0F);
        for (int attempt = 0; attempt < 2; ++attempt) {
          run.startTap();
        }
        EXPECT_TRUE(run.tap.isRunning()) << "one failing call spoils one attempt";
        hardware.quitProcess(run.tapped);
        run.pump();
        EXPECT_EQ(run.rig.heard(kHeadphones), 0.0F);
        run.tap.stop();
        hardware.setMute(kHeadphones, true);
      });
}

// Fault: the same where a call fails again and again, so that retries run out.
TEST(BoostFaultTest, EachKindOfCallMayFailThroughoutAStart) {
  for (int kind = 0; kind <= static_cast<int>(CallKind::destroyProcessTap); ++kind) {
    SCOPED_TRACE(testing::Message() << "kind " << kind);
    FaultRun run;
    run.rig.hardware.inject({.kind = static_cast<CallKind>(kind)});
    run.rig.startError();
    run.pump();
    run.expectOrder(false);
  }
}

}  // namespace orvelle
