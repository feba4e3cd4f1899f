// What the controller remembers, and how the equaliser and the width follow it.
#include <cmath>
#include <vector>

#include "orvelle/EQPreset.h"
#include "tests/ControllerRig.h"

namespace orvelle {
namespace {

class Settings : public ControllerRig {
 protected:
  DeviceStore stored() { return SettingsStore(defaults).loadStore().value_or(DeviceStore()); }
  UserPresets storedPresets() {
    return SettingsStore(defaults).loadUserPresets().value_or(UserPresets());
  }

  /// How much louder the boost makes a steady tone of `hz`, in dB.
  double gainAt(double hz) {
    ProcessDescription tone;
    tone.pid = 200;
    tone.signal = [hz](std::int64_t frame, std::uint32_t) {
      return 0.01F *
             static_cast<float>(std::sin(2.0 * M_PI * hz * static_cast<double>(frame) / 48000.0));
    };
    hardware.setPlaying(player, false);
    const AudioObjectID process = hardware.launch(tone);
    float peak = 0.0F;
    for (int cycle = 0; cycle < 40; ++cycle) {
      hardware.runCycle(480);
      peak = cycle < 30 ? 0.0F : std::max(peak, hardware.heardPeak(kSpeakers));
    }
    hardware.quitProcess(process);
    return 20.0 * std::log10(static_cast<double>(peak) / (0.01 * static_cast<double>(kHalfVolume)));
  }

  static QList<double> bands(double first, double second = 0.0) {
    return {first, second, 0, 0, 0, 0, 0, 0, 0, 0};
  }
};

// Would catch a setting that is forgotten, written too early, or lost beside another device's.
TEST_F(Settings, AreWrittenAtOnceAndFoundAgain) {
  EXPECT_EQ(defaults.writes, 0) << "nothing has changed yet";
  controller->setBoost(3.5);
  DeviceSettings expected;
  expected.boost = 3.5;
  expected.customGains = std::vector<double>(10, 0.0);
  EXPECT_EQ(stored(), (DeviceStore{{kSpeakers, expected}}));
  controller->setEqEnabled(true);
  controller->setEqSelection("Custom");
  controller->setCustomGains(bands(6.0, -3.0));
  controller->setSpatialEnabled(true);
  controller->setSpatialWidth(2.5);
  EXPECT_EQ(defaults.writes, 6);
  controller->shutdown();
  makeController();
  EXPECT_EQ(defaults.writes, 6) << "reading writes nothing";
  EXPECT_EQ(controller->boost(), 3.5);
  EXPECT_TRUE(controller->eqEnabled() && controller->spatialEnabled());
  EXPECT_EQ(controller->eqSelection(), "Custom");
  EXPECT_EQ(controller->customGains(), bands(6.0, -3.0));
  EXPECT_EQ(controller->spatialWidth(), 2.5);
  switchOn();
  EXPECT_NEAR(gainAt(32.0), 20.0 * std::log10(3.5) + 6.0 - 0.5, 1.0);
}

// Would catch a view that is not told, or is told before the change is there for whoever asks.
TEST_F(Settings, TellViewsWhenTheyHaveTakenEffect) {
  using Controller = AudioController;
  struct Case {
    void (Controller::*changed)();
    std::function<void(Controller&)> set;
    std::function<bool(const Controller&, const DeviceSettings&)> isTrue;
  };
  const Case cases[] = {
      {&Controller::boostChanged, [](auto& c) { c.setBoost(3.0); },
       [](auto& c, auto& record) {
         return c.dbLabel() == "3.0×  (+9.5 dB)" && record.boost == 3.0;
       }},
      {&Controller::eqEnabledChanged, [](auto& c) { c.setEqEnabled(true); },
       [](auto& c, auto& record) { return c.eqEnabled() && record.eqEnabled; }},
      {&Controller::customGainsChanged, [](auto& c) { c.setCustomGains(bands(5.0)); },
       [](auto& c, auto& record) {
         return c.customGains() == bands(5.0) && record.customGains->front() == 5.0;
       }},
      {&Controller::userPresetsChanged, [](auto& c) { c.saveUserPreset("Mine"); },
       [](auto& c, auto& record) {
         return c.eqSelection() == "Mine" && record.eqPreset == "Mine";
       }},
      {&Controller::isEditingBandsChanged, [](auto& c) { c.setEqSelection("Music"); },
       [](auto& c, auto& record) { return !c.isEditingBands() && record.eqPreset == "Music"; }},
      {&Controller::customGainsChanged, [](auto& c) { c.setEqSelection("Mine"); },
       [](auto& c, auto& record) { return c.isEditingBands() && record.eqPreset == "Mine"; }},
      {&Controller::userPresetsChanged, [](auto& c) { c.deleteUserPreset("Mine"); },
       [](auto& c, auto& record) {
         return c.eqSelection() == "Custom" && record.eqPreset == "Custom";
       }},
      {&Controller::eqSelectionChanged, [](auto& c) { c.setEqSelection("Flat"); },
       [](auto& c, auto& record) {
         return c.eqSelection() == "Flat" && record.eqPreset == "Flat";
       }},
      {&Controller::spatialEnabledChanged, [](auto& c) { c.setSpatialEnabled(true); },
       [](auto& c, auto& record) { return c.spatialEnabled() && record.spatialEnabled; }},
      {&Controller::spatialWidthChanged, [](auto& c) { c.setSpatialWidth(2.0); },
       [](auto& c, auto& record) { return c.spatialWidth() == 2.0 && record.spatialWidth == 2.0; }},
      {&Controller::boostChanged, [](auto& c) { c.setBoost(std::nan("")); },
       [](auto& c, auto& record) { return c.boost() == 3.0 && record.boost == 3.0; }}};
  for (const Case& each : cases) {
    SCOPED_TRACE(&each - cases);
    int told = 0;
    const auto connection = QObject::connect(controller.get(), each.changed, [&] {
      ++told;
      EXPECT_TRUE(each.isTrue(*controller, stored().at(kSpeakers)));
    });
    each.set(*controller);
    EXPECT_EQ(told, 1);
    QObject::disconnect(connection);
  }
}

// Would catch a record of an old version or a foreign hand that does harm.
TEST_F(Settings, TakeWhatTheyCanUse) {
  defaults.entries[SettingsStore::storeKey] = std::string(
      R"({"speakers":{"boost":1.5,"eqEnabled":true,"eqPreset":"Discontinued","spatialEnabled":false,"spatialWidth":2}})");
  makeController();
  EXPECT_EQ(controller->eqSelection(), "Discontinued");
  EXPECT_FALSE(controller->isEditingBands());
  EXPECT_EQ(controller->customGains(), bands(0.0));
  switchOn();
  EXPECT_NEAR(gainAt(1000.0), 20.0 * std::log10(1.5), 0.1) << "flat";
  controller->setBoost(1.0);
  EXPECT_EQ(stored().at(kSpeakers).customGains, std::vector<double>(10, 0.0));
  controller->setCustomGains({1.0, std::nan(""), 2.0});
  EXPECT_EQ(controller->customGains().size(), 10);
  EXPECT_EQ(controller->customGains().at(1), 0.0);
}

// Would catch a selection that plays other bands than it shows, custom bands that are lost when a
// preset is tried, and a picker that tells too late.
TEST_F(Settings, SelectionDecidesTheBands) {
  switchOn();
  controller->setBoost(1.0);
  controller->setEqEnabled(true);
  controller->setCustomGains(bands(12.0));
  EXPECT_NEAR(gainAt(32.0), 0.0, 0.2) << "the bands of Custom, while Flat is selected";
  controller->setEqSelection("Custom");
  EXPECT_NEAR(gainAt(32.0), 12.0, 0.3);
  controller->setEqSelection("Bass Boost");
  EXPECT_FALSE(controller->isEditingBands());
  EXPECT_NEAR(gainAt(32.0), static_cast<double>(gains(EQPreset::bass)[0]), 3.0);
  EXPECT_NE(gainAt(32.0), gainAt(1000.0));
  controller->setEqSelection("Custom");
  EXPECT_NEAR(gainAt(32.0), 12.0, 0.3) << "the bands from before";
  controller->setEqEnabled(false);
  EXPECT_NEAR(gainAt(32.0), 0.0, 0.1);
}

// Would catch a preset that changes when its bands are edited, one that cannot be got rid of, one
// that is written twice, and names that are not what the user typed.
TEST_F(Settings, KeepUserPresets) {
  controller->saveUserPreset(" \n\t ");
  EXPECT_TRUE(controller->userPresets().empty());
  controller->setCustomGains(bands(3.0));
  controller->saveUserPreset("  Évening ★\n");
  EXPECT_EQ(controller->eqSelection(), "Évening ★");
  EXPECT_TRUE(controller->isEditingBands());
  controller->setCustomGains(bands(-6.0));
  EXPECT_EQ(storedPresets().at("Évening ★").front(), 3.0) << "saved is saved";
  controller->setEqSelection("Flat");
  const int before = defaults.writes;
  controller->setEqSelection("Évening ★");
  EXPECT_EQ(defaults.writes, before + 1);
  EXPECT_EQ(controller->customGains(), bands(3.0));

  controller->shutdown();
  makeController();
  EXPECT_EQ(controller->customGains(), bands(3.0));
  controller->deleteUserPreset("Somebody else's");
  EXPECT_EQ(controller->eqSelection(), "Évening ★");
  controller->deleteUserPreset("Évening ★");
  EXPECT_EQ(controller->eqSelection(), "Custom");
  EXPECT_EQ(controller->customGains(), bands(3.0));
  EXPECT_TRUE(storedPresets().empty());
  EXPECT_EQ(stored().at(kSpeakers).eqPreset, "Custom");
}

// Would catch a width that is heard although it is switched off, or not although it is on.
TEST_F(Settings, WidthIsHeardWhileItIsOn) {
  ProcessDescription sideways;
  sideways.pid = 200;
  sideways.signal = [](std::int64_t, std::uint32_t channel) {
    return channel == 0 ? 0.01F : -0.01F;
  };
  hardware.quitProcess(player);
  hardware.launch(sideways);
  switchOn();
  controller->setBoost(1.0);
  controller->setSpatialWidth(2.0);
  const float narrow = heard();
  controller->setSpatialEnabled(true);
  EXPECT_NEAR(heard(), 2.0F * narrow, 1e-6);
  controller->setSpatialWidth(1.5);
  EXPECT_NEAR(heard(), 1.5F * narrow, 1e-6);
  controller->setSpatialEnabled(false);
  EXPECT_EQ(heard(), narrow);
}

// Would catch a switch that the desktop does not hear of, or hears of twice.
TEST_F(Settings, StartAtLoginFollowsItsSwitch) {
  controller->setStartAtLogin(true);
  controller->setStartAtLogin(false);
  EXPECT_EQ(services.calls, (std::vector<std::string>{"register", "unregister"}));
  services.loginItemFailure = "the folder cannot be written";
  controller->setStartAtLogin(true);
  EXPECT_EQ(console.lines.back(), "Login-item update failed: the folder cannot be written");
  EXPECT_EQ(services.count("alert"), 1U);
  EXPECT_TRUE(controller->startAtLogin()) << "as it was set, until the next run asks the desktop";
  makeController();
  EXPECT_FALSE(controller->startAtLogin());
}

}  // namespace
}  // namespace orvelle
