// Every hardware call failing in turn, at every step of start, guard and stop.
#include <gtest/gtest.h>

#include "tests/BoostRig.h"

namespace orvelle {

namespace {

constexpr float kGain = 2.0F;

/// A world in which one thing is done while calls fail, and what must hold during and after it.
class FaultRun {
 public:
  FaultRun() {
    DeviceDescription headphones = stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB);
    headphones.volumes = {{1, {0.4F}}, {2, {0.4F}}};
    headphones.mute = true;
    rig.hardware.plug(headphones);
    rig.hardware.plug(headset("headset"));
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

  void pump() { rig.queue.advance(0.2); }

  void expectOrder() {
    rig.hardware.clearFaults();
    rig.putRight();
    EXPECT_EQ(rig.hardware.defaultOutputUID(), hasAskedForLoopback() ? kHeadphones : kSpeakers);
    for (const std::string& uid : {kSpeakers, kHeadphones, std::string("headset")}) {
      const DeviceDescription device = rig.hardware.device(uid);
      EXPECT_EQ(device.mute, uid == kHeadphones) << uid;
      for (const auto& [element, control] : device.volumes) {
        EXPECT_EQ(control.value, uid == kHeadphones ? 0.4F : 0.5F) << uid << " element " << element;
      }
    }
    EXPECT_LE(rig.hardware.aggregateCount(), refused(CallKind::destroyAggregateDevice));
    EXPECT_LE(rig.hardware.ioProcCount(), refused(CallKind::destroyIOProcID));
    EXPECT_LE(rig.hardware.listenerCount(), refused(CallKind::removePropertyListener));

    rig.hardware.chooseDefaultOutput(kSpeakers);
    EXPECT_EQ(rig.startError(), "") << "the engine cannot start any more";
    EXPECT_NEAR(rig.heard(kSpeakers), kSource * volumeFactor(0.5F) * kGain, 1e-4F);
    rig.hardware.afterChange = nullptr;
  }

  BoostRig rig;

 private:
  /// Nobody may hear more than the boost asked for, at any moment.
  void listen() {
    rig.hardware.runCycle(4);
    const float loudest = kSource * volumeFactor(0.5F) * kGain * 1.001F;
    for (const std::string& uid : {kSpeakers, kHeadphones, std::string("headset")}) {
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
  faultless.expectOrder();
  ASSERT_GT(calls, 10U);
  for (const FaultEffect effect : {FaultEffect::fail, FaultEffect::failAfterwards}) {
    for (std::uint64_t call = 0; call < calls; ++call) {
      SCOPED_TRACE(testing::Message() << "call " << call << " of " << calls << " fails"
                                      << (effect == FaultEffect::fail ? "" : " afterwards"));
      FaultRun run;
      prepare(run);
      run.rig.hardware.inject({.skip = call, .count = 1, .effect = effect});
      action(run);
      run.expectOrder();
      if (testing::Test::HasFailure()) {
        return;
      }
    }
  }
}

}  // namespace

// Faults of all five cases: a failing call leaves an output loud, a volume or mute changed, the
// default output on the loopback, an object behind, or the engine unable to start again.

TEST(BoostFaultTest, EachCallOfStartMayFail) {
  failEachCallOf([](FaultRun&) {}, [](FaultRun& run) { run.start(); });
}

TEST(BoostFaultTest, EachCallOfAFollowMayFail) {
  failEachCallOf([](FaultRun& run) { run.start(); },
                 [](FaultRun& run) {
                   run.rig.hardware.chooseDefaultOutput(kHeadphones);
                   run.pump();
                 });
}

TEST(BoostFaultTest, EachCallOfASnapBackMayFail) {
  failEachCallOf([](FaultRun& run) { run.start(); },
                 [](FaultRun& run) {
                   run.rig.hardware.chooseDefaultOutput("headset");
                   run.pump();
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

// Fault: the same where a call fails again and again, so that retries run out.
TEST(BoostFaultTest, EachKindOfCallMayFailThroughoutAStart) {
  for (int kind = 0; kind <= static_cast<int>(CallKind::destroyProcessTap); ++kind) {
    SCOPED_TRACE(testing::Message() << "kind " << kind);
    FaultRun run;
    run.rig.hardware.inject({.kind = static_cast<CallKind>(kind)});
    run.rig.startError();
    run.pump();
    run.expectOrder();
  }
}

}  // namespace orvelle
