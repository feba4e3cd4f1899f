// The process dying at every call that changes something, and before every debt that it tells:
// whoever puts things right then has only what has been told so far.
#include <gtest/gtest.h>

#include "orvelle/DeviceRouter.h"
#include "orvelle/ProcessTapEngine.h"
#include "orvelle/PutRight.h"
#include "tests/BoostRig.h"

namespace orvelle {

namespace {

constexpr float kGain = 2.0F;
const std::string kHeadset = "headset";
const std::string kVisitor = "visitor";

/// What a journal holds. Lets a debt be told only while the process lives.
class RememberingKeeper final : public UndoKeeper {
 public:
  explicit RememberingKeeper(std::function<bool()> isAlive) : isAlive_(std::move(isAlive)) {}

  void keep(const std::string& owner, const UndoRecord& record) override {
    if (!isAlive_()) {
      return;
    }
    records.erase(owner);
    if (!record.isEmpty()) {
      records[owner] = record;
    }
  }
  [[nodiscard]] std::optional<std::int32_t> boostingProcess() const override { return {}; }

  UndoRecords records;

 private:
  const std::function<bool()> isAlive_;
};

/// A world in which a session takes place, up to the death in its middle.
class MortalRun {
 public:
  /// Dies at step `deathStep`; then the call `faultyCall` of putting things right fails.
  explicit MortalRun(std::uint64_t deathStep, std::optional<std::uint64_t> faultyCall = {})
      : deathStep_(deathStep), faultyCall_(faultyCall) {
    DeviceDescription headphones = stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB);
    headphones.volumes = {{1, {0.4F}}, {2, {0.4F}}};
    headphones.mute = true;
    rig.hardware.plug(headphones);
    rig.hardware.plug(headset(kHeadset));
    rig.queue.runUntilIdle();
    for (const std::string& uid : {kSpeakers, kHeadphones, kHeadset}) {
      before_[uid] = rig.hardware.device(uid);
    }
    before_[kVisitor] = stereoOutput(kVisitor, kAudioDeviceTransportTypeBluetooth, 0.5F);
    rig.engine = std::make_unique<BoostEngine>(host);
    rig.engine->gain = kGain;
    router.emplace(host, *rig.engine);
    for (bool* showMeter : {&rig.engine->showMeter, &tap.showMeter}) {
      *showMeter = false;
    }
    rig.hardware.beforeChange = [this] { return mayGoOn(); };
    rig.hardware.afterChange = [this] { listen(); };
  }
  ~MortalRun() { rig.hardware.beforeChange = nullptr; }
  MortalRun(const MortalRun&) = delete;
  MortalRun& operator=(const MortalRun&) = delete;

  void start(const std::string& outputUID) {
    if (!rig.startError(kLoopback, outputUID).empty()) {
      rig.putRight();
    }
  }

  void startTap() {
    try {
      tap.start(rig.program, kHeadset);
    } catch (const EngineError&) {
      tap.teardown();
    }
  }

  /// Something that people do, and the time that the program has for it.
  void happen(const std::function<void(SimulatedHardware&)>& event, double seconds = 0.2) {
    if (!hasDied()) {
      event(rig.hardware);
    }
    rig.queue.advance(seconds);
  }

  /// What is away returns as it went.
  void comeBack() {
    happen([this](SimulatedHardware& world) {
      world.plug(*away);
      away.reset();
    });
  }

  [[nodiscard]] bool hasDied() const { return life_ != Life::alive; }
  /// Calls that it took to put things right.
  [[nodiscard]] std::uint64_t repairCalls() const { return repairCalls_; }

  BoostRig rig;
  RememberingKeeper keeper{[this] { return mayGoOn(); }};
  const EngineHost host{rig.hardware, rig.queue, rig.queue, rig.console, keeper};
  std::optional<DeviceRouter> router;  ///< of `rig.engine`
  ProcessTapEngine tap{host};

 private:
  enum class Life : std::uint8_t { alive, beingPutRight, dead };

  bool mayGoOn() {
    if (life_ == Life::alive && step_++ == deathStep_) {
      die();
    }
    return life_ != Life::dead;
  }

  void die() {
    life_ = Life::beingPutRight;
    const std::string defaultAtDeath = rig.hardware.defaultOutputUID();
    rig.hardware.endClient();
    listen();
    if (faultyCall_) {
      rig.hardware.inject({.skip = *faultyCall_, .count = 1});
    }
    const std::uint64_t callsBefore = rig.hardware.callCount();
    UndoRecords left = orvelle::putRight(rig.hardware, keeper.records);
    repairCalls_ = rig.hardware.callCount() - callsBefore;
    rig.hardware.clearFaults();
    if (faultyCall_) {
      left = orvelle::putRight(rig.hardware, left);  // as the next command does
    }
    expectAsBefore(defaultAtDeath);
    // What was away at the time comes back as loud as it went.
    if (away) {
      rig.hardware.plug(*away);
      left = orvelle::putRight(rig.hardware, left);
    }
    EXPECT_EQ(left, UndoRecords{});
    expectLevelsAsBefore();
    life_ = Life::dead;
  }

  void expectAsBefore(const std::string& defaultAtDeath) {
    expectLevelsAsBefore();
    const std::string now = rig.hardware.defaultOutputUID();
    if (defaultAtDeath != kLoopback) {
      EXPECT_EQ(now, defaultAtDeath) << "the user's choice, or put back already";
    } else if (faultyCall_) {
      EXPECT_NE(now, kLoopback);  // where the former one cannot be found, another will do
    } else {
      EXPECT_EQ(now, away && away->uid == kSpeakers ? kHeadphones : kSpeakers);
    }
  }

  void expectLevelsAsBefore() {
    for (const auto& [uid, device] : before_) {
      if (rig.hardware.id(uid) == kAudioObjectUnknown) {
        continue;
      }
      const DeviceDescription now = rig.hardware.device(uid);
      EXPECT_EQ(now.mute, device.mute) << uid;
      for (const auto& [element, control] : device.volumes) {
        EXPECT_EQ(now.volumes.at(element).value, control.value) << uid << " element " << element;
      }
    }
  }

  /// While the program lives, nobody may hear more than the boost of the loopback's level; as soon
  /// as it is dead, than the output's own former level.
  void listen() {
    rig.hardware.runCycle(4);
    for (const auto& [uid, device] : before_) {
      DeviceDescription unmuted = device;
      unmuted.mute = false;  // the loopback may have taken over the mute
      const float own = outputFactor(hasDied() ? device : unmuted, 0);
      const float boosted = hasDied() ? 0.0F : volumeFactor(0.5F) * kGain;
      EXPECT_LE(rig.hardware.heardPeak(uid), kSource * std::max(own, boosted) * 1.001F)
          << uid << " after "
          << (rig.hardware.logTexts().empty() ? "" : rig.hardware.logTexts().back());
    }
  }

 public:
  std::optional<DeviceDescription> away;

 private:
  const std::uint64_t deathStep_;
  const std::optional<std::uint64_t> faultyCall_;
  std::uint64_t step_ = 0;
  std::uint64_t repairCalls_ = 0;
  Life life_ = Life::alive;
  std::map<std::string, DeviceDescription> before_;
};

/// Runs `session` once for each of its steps, with the process dying there; and for each of these
/// once more for each call of putting things right, with that call failing.
void dieAtEachStepOf(const std::function<void(MortalRun&)>& session) {
  for (std::uint64_t step = 0;; ++step) {
    SCOPED_TRACE(testing::Message() << "dies at step " << step);
    MortalRun run(step);
    session(run);
    if (!run.hasDied()) {
      EXPECT_EQ(run.keeper.records, UndoRecords{}) << "a debt after the end";
      ASSERT_GT(step, 10U);
      return;
    }
    for (std::uint64_t call = 0; call < run.repairCalls(); ++call) {
      SCOPED_TRACE(testing::Message() << "then call " << call << " fails");
      MortalRun faultyRun(step, call);
      session(faultyRun);
      if (testing::Test::HasFailure()) {
        return;
      }
    }
  }
}

}  // namespace

// Faults of all cases: a debt that is told too late or forgotten too early, and a way back
// that is louder than the way there.

TEST(DeathTest, AtEachStepOfABoost) {
  dieAtEachStepOf([](MortalRun& run) {
    run.start(kSpeakers);
    for (const std::string& uid : {kHeadset, kHeadphones, kSpeakers}) {
      run.happen([&](SimulatedHardware& world) { world.chooseDefaultOutput(uid); });
    }
    run.happen([&](SimulatedHardware& world) { run.away = world.unplug(kSpeakers); });
    run.comeBack();
    run.rig.engine->stop(true);
  });
}

TEST(DeathTest, AtEachStepOfAnAutomaticBoost) {
  dieAtEachStepOf([](MortalRun& run) {
    run.start(kHeadphones);
    run.router->start();
    run.happen(
        [](SimulatedHardware& world) {
          world.plug(stereoOutput(kVisitor, kAudioDeviceTransportTypeBluetooth, 0.5F));
        },
        2.5);
    run.happen([&](SimulatedHardware& world) { run.away = world.unplug(kVisitor); }, 2.5);
    run.comeBack();
    run.rig.engine->stop(true);
  });
}

// Also: one that takes the loopback for the user's own choice when it wakes.
TEST(DeathTest, AtEachStepOfABoostThatSleepsAndWakes) {
  dieAtEachStepOf([](MortalRun& run) {
    run.start(kSpeakers);
    for (const std::string& uid : {kHeadphones, kSpeakers}) {
      run.rig.engine->stop(false);
      run.start(uid);
    }
    run.rig.engine->stop(false);
    run.rig.engine->stop(true);
  });
}

TEST(DeathTest, AtEachStepOfATapBesideABoost) {
  dieAtEachStepOf([](MortalRun& run) {
    run.startTap();
    run.start(kSpeakers);
    run.tap.stop();
    run.startTap();
    run.rig.engine->stop(true);
    run.tap.stop();
  });
}

}  // namespace orvelle
