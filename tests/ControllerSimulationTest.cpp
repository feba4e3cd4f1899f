// A long random life of the controller: what users do, devices and programs that come and go, calls
// that fail or hang, and time that passes.
#include <array>
#include <cstdlib>
#include <random>
#include <string>

#include "tests/ControllerRig.h"

namespace orvelle {
namespace {

class ControllerLife : public ControllerRig {
 protected:
  void live(std::uint64_t seed, int steps) {
    random_.seed(seed);
    callBack();
    for (int step = 0; step < steps && !HasFailure(); ++step) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
      act();
      queue.runUntilIdle();
      expectInvariants();
    }
    beginAnew();
  }

 private:
  struct Device {
    std::string uid;
    std::uint32_t transportType;
  };

  int roll(int sides) { return std::uniform_int_distribution(0, sides - 1)(random_); }

  void act() {
    switch (roll(16)) {
      case 0:
        return controller->toggle();
      case 1:
        return roll(2) == 0 ? controller->start() : controller->stop();
      case 2:
        return controller->setIdleStandbyEnabled(roll(3) > 0);
      case 3:
        return changeSetting();
      case 4:
        return changeSetting();
      case 5:
        return changePreset();
      case 6:
        return plugOrUnplug();
      case 7:
        return hardware.chooseDefaultOutput(anyDevice().uid);
      case 8:
        return hardware.setPlaying(player, roll(3) == 0);
      case 9:
        return failSomething();
      case 10:
        return hangNextStartFor(std::array{0.05, 1.0, 12.0}.at(static_cast<std::size_t>(roll(3))));
      case 11:
        return roll(4) == 0 ? beginAnew() : heardByMeter();
      default:
        queue.advance(std::array{0.01, 0.4, 2.0, 9.0}.at(static_cast<std::size_t>(roll(4))));
    }
  }

  /// Views that call back when they are told.
  void callBack() {
    const auto sometimes = [this](void (AudioController::*changed)(),
                                  void (AudioController::*operation)()) {
      QObject::connect(controller.get(), changed, [this, operation] {
        if (roll(20) == 0) {
          (controller.get()->*operation)();
        }
      });
    };
    sometimes(&AudioController::isOnChanged, &AudioController::start);
    sometimes(&AudioController::isOnChanged, &AudioController::stop);
    sometimes(&AudioController::startInProgressChanged, &AudioController::toggle);
    sometimes(&AudioController::deviceNameChanged, &AudioController::stop);
    sometimes(&AudioController::lastErrorChanged, &AudioController::stop);
    sometimes(&AudioController::boostStatusChanged, &AudioController::stop);
  }

  void changeSetting() {
    const std::string uid = controller->currentDeviceUID();
    switch (roll(6)) {
      case 0:
        controller->setBoost(1.0 + roll(41) / 10.0);
        break;
      case 1:
        controller->setEqEnabled(roll(2) == 0);
        break;
      case 2:
        controller->setEqSelection(std::array{"Flat", "Custom", "Music", "mine", "?"}.at(
            static_cast<std::size_t>(roll(5))));
        break;
      case 3:
        controller->setCustomGains(QList<double>(10, roll(25) - 12.0));
        break;
      case 4:
        controller->setSpatialEnabled(roll(2) == 0);
        break;
      default:
        controller->setSpatialWidth(1.0 + roll(16) / 10.0);
    }
    setOn(uid);
  }

  void changePreset() {
    const std::string uid = controller->currentDeviceUID();
    if (roll(2) == 0) {
      controller->saveUserPreset("mine");
    } else {
      controller->deleteUserPreset("mine");
    }
    setOn(uid);
  }

  /// The user has set what is live now on `uid`, which no setter changes by itself.
  void setOn(const std::string& uid) {
    EXPECT_EQ(controller->currentDeviceUID(), uid);
    if (!uid.empty()) {
      expected_[uid] = live();
    }
  }

  const Device& anyDevice() {
    static const std::array<Device, 4> devices = {{{kSpeakers, kAudioDeviceTransportTypeBuiltIn},
                                                   {"usb", kAudioDeviceTransportTypeUSB},
                                                   {"hdmi", kAudioDeviceTransportTypeHDMI},
                                                   {"buds", kAudioDeviceTransportTypeBluetooth}}};
    return devices.at(static_cast<std::size_t>(roll(4)));
  }

  void plugOrUnplug() {
    const Device& device = anyDevice();
    if (hardware.id(device.uid) != kAudioObjectUnknown) {
      unplugged_[device.uid] = hardware.unplug(device.uid);
    } else if (const auto known = unplugged_.extract(device.uid)) {
      plug(known.mapped());
    } else {
      plug(stereoOutput(device.uid, device.transportType, 0.5F));
    }
  }

  /// Where nothing else was left, the desktop has put the default output on the loopback itself.
  void plug(const DeviceDescription& device) {
    const bool isFirst = HAL(hardware).realOutputs().empty();
    hardware.plug(device);
    queue.runUntilIdle();
    const bool isOff =
        !controller->isOn() && !controller->startInProgress() && !controller->boostArmed();
    if (isFirst && isOff && !worker.isBusy()) {
      hardware.chooseDefaultOutput(device.uid);
    }
  }

  void failSomething() {
    const std::array kinds = {CallKind::createAggregateDevice, CallKind::createIOProcID,
                              CallKind::startDevice, CallKind::getPropertyData};
    isFaulty_ = true;
    hardware.inject({.kind = kinds.at(static_cast<std::size_t>(roll(4))),
                     .skip = static_cast<std::uint64_t>(roll(5)),
                     .count = 1U + static_cast<std::uint64_t>(roll(12))});
  }

  void heardByMeter() {
    services.windows = {{roll(2) == 0, true, 300.0, 620.0}};
    hardware.runCycle(16);
  }

  /// The program ends and is started again. Whatever is still on its way to the old controller
  /// finds nobody.
  void beginAnew() {
    hardware.clearFaults();
    isFaulty_ = false;
    while (!unplugged_.empty()) {
      // One that vanished while it was raised comes back as loud.
      plug(unplugged_.extract(unplugged_.begin()).mapped());
    }
    if (!controller->shutdown()) {
      queue.advance(20.0);  // the call that hung has come back
      EXPECT_TRUE(controller->shutdown());
    }
    controller.reset();
    queue.runUntilIdle();
    expectSystemAsBefore();
    makeController();
    callBack();
  }

  [[nodiscard]] DeviceSettings live() const {
    const QList<double> gains = controller->customGains();
    return {controller->boost(),
            controller->eqEnabled(),
            controller->eqSelection().toStdString(),
            controller->spatialEnabled(),
            controller->spatialWidth(),
            std::vector<double>(gains.begin(), gains.end())};
  }

  void expectSystemAsBefore() {
    EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount(), 0U);
    EXPECT_TRUE(services.activities.empty());
    const HAL hal(hardware);
    for (const AudioDeviceInfo& output : hal.realOutputs()) {
      EXPECT_EQ(hal.outputVolume(output.id), 0.5F) << output.uid;
      EXPECT_NE(hardware.defaultOutputUID(), kLoopback);
    }
  }

  void expectInvariants() {
    EXPECT_LE(hardware.aggregateCount(), 1U);
    const bool isOff = !controller->isOn() && !controller->startInProgress();
    if (isOff && !worker.isBusy()) {
      EXPECT_EQ(hardware.ioProcCount(), 0U) << "an engine behind a panel that shows no boost";
      EXPECT_TRUE(services.activities.empty());
      EXPECT_EQ(controller->level(), 0.0F);
      if (!controller->boostArmed() && !isFaulty_) {
        expectSystemAsBefore();
      }
    }
    EXPECT_FALSE(controller->isOn() && controller->boostArmed());
    expectRecords();
  }

  /// Every device's record is what was last set on it; a device that is new has taken over what was
  /// live.
  void expectRecords() {
    const DeviceStore stored = SettingsStore(defaults).loadStore().value_or(DeviceStore());
    for (const auto& [uid, settings] : stored) {
      const auto known = expected_.find(uid);
      if (known == expected_.end()) {
        const bool isInherited =
            std::ranges::any_of(expected_, [this, &record = settings](const auto& other) {
              return withPresetBands(other.second) == withPresetBands(record);
            });
        EXPECT_TRUE(isInherited || expected_.empty()) << uid;
        expected_[uid] = settings;
      } else if (known->second != settings) {
        // Its user preset has been saved anew since, and was taken as it is now.
        EXPECT_EQ(withPresetBands(known->second), withPresetBands(settings)) << uid;
        known->second = settings;
      }
    }
    if (const auto current = stored.find(controller->currentDeviceUID()); current != stored.end()) {
      EXPECT_EQ(withPresetBands(current->second), withPresetBands(live()));
    }
  }

  /// The record as it is applied.
  DeviceSettings withPresetBands(DeviceSettings settings) {
    const UserPresets presets = SettingsStore(defaults).loadUserPresets().value_or(UserPresets());
    if (const auto preset = presets.find(settings.eqPreset); preset != presets.end()) {
      settings.customGains = preset->second;
    }
    return settings;
  }

  std::mt19937_64 random_;
  std::map<std::string, DeviceDescription> unplugged_;
  DeviceStore expected_;
  bool isFaulty_ = false;  ///< since the latest beginning
};

// Would catch whatever only a rare order of events brings about.
TEST_F(ControllerLife, KeepsItsInvariants) {
  const char* seed = std::getenv("ORVELLE_SIMULATION_SEED");
  live(seed != nullptr ? std::strtoull(seed, nullptr, 10) : 1, 10000);
}

}  // namespace
}  // namespace orvelle
