// The panel's rows: what they show, when, and what they do.
#include <QColor>
#include <QGuiApplication>
#include <QPalette>
#include <QSignalSpy>
#include <QTest>

#include "tests/panel/PanelRig.h"

namespace orvelle {
namespace {

using Texts = QStringList;

class ControlPanel : public PanelRig {
 protected:
  /// All texts from top to bottom, and "-" for dividers.
  Texts rows() {
    Texts found;
    for (QQuickItem* item : items([](QQuickItem& each) {
           return each.inherits("QQuickText") || each.inherits("orvelle::Hairline");
         })) {
      const QString text = item->property("text").toString();
      found.append(item->inherits("QQuickText") ? text : "-");
    }
    found.removeAll("");
    return found;
  }

  bool isOn(const QString& name) { return toggle(name)->property("checked").toBool(); }

  QColor colorOf(const QString& text) {
    QQuickItem* item = shownText(text);
    return item == nullptr ? QColor() : item->property("color").value<QColor>();
  }

  void drag(QPoint from, QPoint to) {
    QTest::mousePress(&view, Qt::LeftButton, {}, from);
    for (int step = 1; step <= 4; ++step) {
      QTest::mouseMove(&view, from + (((to - from) * step) / 4));
    }
    QTest::mouseRelease(&view, Qt::LeftButton, {}, to);
    settle();
  }
};

const Texts kQuit = {"Quit Orvelle"};
const Texts kIdleNote = {
    "Sleeps the boost when nothing is playing at all. Saves power, but adds a moment before sound "
    "starts."};

// Would catch a row that is missing, twice, in another place or in other words, and one that stays
// when its reason has gone.
TEST_F(ControlPanel, ShowsItsRowsInOrder) {
  open();
  EXPECT_EQ(view.size(), QSize(300, 620));
  const Texts above = {"Orvelle", "v0.2.4",       "-", "Volume Boost", "2.0×  (+6.0 dB)",
                       "-",       "speakers name"};
  const Texts below =
      Texts{"-", "3D Surround", "-", "Start at login", "Idle power saving"} + kIdleNote;
  const Texts flat = above + Texts{"-", "EQ", "Flat"} + below;
  EXPECT_EQ(rows(), flat + kQuit);

  // Everything at once: a start out of standby hangs, and a user preset is edited.
  controller->saveUserPreset("Mine");
  controller->setEqEnabled(true);
  fallAsleep();
  hangNextStartFor(12.0);
  hardware.setPlaying(player, true);
  queue.advance(9.0);
  const Texts status = {controller->lastError(), controller->boostStatus()};
  EXPECT_FALSE(status[0].isEmpty() || status[1].isEmpty());
  const Texts bands = {"-",   "EQ", "★ Mine", "32", "64", "125", "250",
                       "500", "1k", "2k",     "4k", "8k", "16k"};
  const Texts editing = {"Name this preset", "Save", "Reset", "Delete"};
  const Texts everything = above + status + bands + editing + below;
  EXPECT_EQ(rows(), everything + kQuit);
  queue.advance(5.0);
  controller->setEqEnabled(false);
  controller->stop();
  const Texts quiet = above + Texts{"-", "EQ", "★ Mine"} + below;
  EXPECT_EQ(rows(), quiet + kQuit);
}

// Would catch a warning without its divider, without the system's own name, or for nothing.
TEST_F(ControlPanel, WarnsOfOtherDrivers) {
  installDrivers();
  open();
  const Texts warning = {
      "-",
      "Other audio drivers detected and may increase " + controller->audioSystemName() + " CPU.",
      "Also installed: ParrotAudioPlugin.driver, BoomAudio.driver."};
  const Texts shown = rows();
  EXPECT_EQ(shown.mid(shown.indexOf(kIdleNote.front())), kIdleNote + warning + kQuit);
}

// Would catch a switch that shows what was clicked instead of what is, that toggles twice or only
// in one direction, and a label or meter that tells another story than the switch.
TEST_F(ControlPanel, SwitchShowsTheTruth) {
  open();
  const QString label = "2.0×  (+6.0 dB)";
  const QColor secondary = colorOf("v0.2.4");
  EXPECT_FALSE(isOn("Orvelle"));
  EXPECT_EQ(colorOf(label), secondary);

  click(toggle("Orvelle"));
  EXPECT_TRUE(controller->startInProgress());
  EXPECT_FALSE(isOn("Orvelle")) << "not yet";
  click(toggle("Orvelle"));
  EXPECT_TRUE(controller->startInProgress()) << "refused while starting";
  EXPECT_FALSE(isOn("Orvelle"));
  queue.advance(0.2);
  EXPECT_TRUE(isOn("Orvelle"));
  EXPECT_EQ(colorOf(label), colorOf("speakers name"));

  fallAsleepFromOn();
  EXPECT_TRUE(isOn("Orvelle")) << "armed";
  EXPECT_EQ(colorOf(label), colorOf("speakers name"));
  tap(at(toggle("Orvelle")));
  EXPECT_FALSE(isOn("Orvelle") || controller->boostArmed()) << "by finger";
  EXPECT_EQ(colorOf(label), secondary);
}

// Would catch a slider that leaves its range or its steps, one that moves the wrong setting, and
// one that stays inert or lively when it should not.
TEST_F(ControlPanel, SlidersSetWhatTheyName) {
  open();
  QQuickItem* boost = slider("Volume Boost");
  drag(at(boost, 0.28), at(boost, 0.0) - QPoint(60, 0));
  EXPECT_EQ(controller->boost(), 1.0);
  drag(at(boost, 0.0) + QPoint(8, 0), at(boost, 0.61));
  EXPECT_EQ(controller->boost(), 3.5);
  EXPECT_TRUE(shows("3.5×  (+10.9 dB)"));
  drag(at(boost, 0.61), at(boost, 1.0) + QPoint(10, 0));
  EXPECT_EQ(controller->boost(), 5.0);
  controller->setBoost(2.0);
  EXPECT_EQ(boost->property("value").toDouble(), 2.0) << "also after drags";
  swipe(at(boost, 0.28), at(boost, 0.61));
  EXPECT_EQ(controller->boost(), 3.5) << "by finger";

  QQuickItem* width = slider("3D Surround width");
  EXPECT_EQ(width->property("value").toDouble(), 1.5);
  drag(at(width, 0.33), at(width, 0.9));
  wheel(width, 3);
  EXPECT_EQ(controller->spatialWidth(), 1.5) << "inert while off";
  click(toggle("3D Surround"));
  EXPECT_TRUE(controller->spatialEnabled());
  drag(at(width, 0.35), at(width, 1.0) + QPoint(10, 0));
  EXPECT_EQ(controller->spatialWidth(), 2.5);
}

struct Step {
  const char* slider;
  Qt::Key key;
  Qt::KeyboardModifiers modifiers;
  double expected;
};

// Would catch a key without effect or with another's, and rounding that piles up.
TEST_F(ControlPanel, SlidersTakeKeysAndWheel) {
  controller->setSpatialEnabled(true);
  open();
  const std::vector<Step> steps = {
      {"Volume Boost", Qt::Key_Right, {}, 2.1},
      {"Volume Boost", Qt::Key_Up, {}, 2.2},
      {"Volume Boost", Qt::Key_Left, {}, 2.1},
      {"Volume Boost", Qt::Key_PageUp, {}, 2.6},
      {"Volume Boost", Qt::Key_PageDown, {}, 2.1},
      {"Volume Boost", Qt::Key_End, {}, 5.0},
      {"Volume Boost", Qt::Key_Right, {}, 5.0},
      {"Volume Boost", Qt::Key_Home, {}, 1.0},
      {"3D Surround width", Qt::Key_Right, {}, 1.55},
      {"3D Surround width", Qt::Key_PageUp, {}, 1.8},
      {"3D Surround width", Qt::Key_Down, Qt::ControlModifier, 1.79},
  };
  const auto value = [this](const QString& name) {
    return name == "Volume Boost" ? controller->boost() : controller->spatialWidth();
  };
  for (const Step& step : steps) {
    slider(step.slider)->forceActiveFocus(Qt::TabFocusReason);
    press(step.key, step.modifiers);
    EXPECT_NEAR(value(step.slider), step.expected, 1e-9) << step.slider << " key " << step.key;
  }
  wheel(slider("Volume Boost"), 3);
  EXPECT_EQ(controller->boost(), 1.3);
  wheel(slider("3D Surround width"), -1, Qt::ShiftModifier);
  EXPECT_NEAR(controller->spatialWidth(), 1.78, 1e-9);
}

// Would catch a check box that sets the other's setting, or does not follow it.
TEST_F(ControlPanel, CheckBoxesSetTheirSettings) {
  open();
  click(toggle("Start at login"));
  EXPECT_TRUE(controller->startAtLogin() && isOn("Start at login"));
  EXPECT_EQ(services.count("register"), 1U);
  click(toggle("Start at login"));
  EXPECT_EQ(services.count("unregister"), 1U);
  toggle("Idle power saving")->forceActiveFocus();
  press(Qt::Key_Space);
  EXPECT_TRUE(controller->idleStandbyEnabled() && isOn("Idle power saving"));
  press(Qt::Key_Return);
  EXPECT_FALSE(controller->idleStandbyEnabled() || isOn("Idle power saving"));
}

// Would catch a key that presses again and again while it is held down, or not at all.
TEST_F(ControlPanel, HeldKeysPressOnce) {
  open();
  QSignalSpy quits(view.rootObject(), SIGNAL(quitRequested()));
  QSignalSpy standby(controller.get(), &AudioController::idleStandbyEnabledChanged);
  QSignalSpy surround(controller.get(), &AudioController::spatialEnabledChanged);
  int presses = 0;
  for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
    for (QQuickItem* item :
         {toggle("3D Surround"), toggle("Idle power saving"), button("Quit Orvelle")}) {
      item->forceActiveFocus(Qt::TabFocusReason);
      hold(key);
    }
    ++presses;
    EXPECT_EQ(surround.count(), presses) << key;
    EXPECT_EQ(standby.count(), presses) << key;
    EXPECT_EQ(quits.count(), presses) << key;
  }
}

// Would catch views that move for those who asked for stillness, and that jump for everybody.
TEST_F(ControlPanel, MovesOnlyWhereItMay) {
  open();
  QQuickItem* equaliser = toggle("EQ");
  QQuickItem* knob = equaliser->property("indicator").value<QQuickItem*>()->childItems().last();
  QQuickItem* meter = control("Level", QAccessible::ProgressBar);
  for (const bool isReduced : {true, false}) {
    view.rootObject()->setProperty("reducedMotion", isReduced);
    const double from = knob->x();
    const double to = 20.0 - from;
    const double level = isReduced ? 0.5 : 0.75;
    controller->setEqEnabled(!controller->eqEnabled());
    meter->setProperty("level", level);
    EXPECT_EQ(knob->x(), isReduced ? to : from);
    EXPECT_EQ(meter->property("shownLevel").toDouble(), isReduced ? level : 0.5);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return knob->x() == to && meter->property("shownLevel").toDouble() == level; }));
  }
}

// Would catch a panel that cannot be left by button or key.
TEST_F(ControlPanel, AsksToQuitAndToClose) {
  open();
  QSignalSpy quits(view.rootObject(), SIGNAL(quitRequested()));
  QSignalSpy closes(view.rootObject(), SIGNAL(closeRequested()));
  click(button("Quit Orvelle"));
  press(Qt::Key_Q, Qt::ControlModifier);
  EXPECT_EQ(quits.count(), 2);
  press(Qt::Key_Escape);
  EXPECT_EQ(closes.count(), 1);
}

// Would catch a hint that stays, and one that takes the clicks for what lies under it.
TEST_F(ControlPanel, HintsAtWhatLiesBelow) {
  editBands();
  open();
  const auto hint = [this] {
    const auto found = items([](QQuickItem& item) {
      return item.inherits("orvelle::Symbol") && item.property("shape").toInt() == 3;
    });
    return found.empty() ? nullptr : found.front();
  };
  ASSERT_NE(hint(), nullptr);
  EXPECT_GT(hint()->y(), 590.0);
  // Large enough to lie under the hint.
  QSignalSpy quits(view.rootObject(), SIGNAL(quitRequested()));
  QQuickItem* quit = button("Quit Orvelle");
  quit->setSize({200.0, 46.0});
  click(hint()->mapToScene({12.0, 2.0}).toPoint());
  EXPECT_EQ(quits.count(), 1);
  controller->setEqSelection("Music");
  EXPECT_EQ(hint(), nullptr);
  controller->setEqSelection("Custom");
  controller->setEqEnabled(false);
  EXPECT_EQ(hint(), nullptr);
}

// Would catch a panel that keeps the face it had when the desktop changes, and one on which a
// desktop's colour makes the switch unrecognisable.
TEST_F(ControlPanel, FollowsTheDesktop) {
  struct Case {
    bool isDark;
    const char* highlight;
    const char* track;
    bool isKnobDark;
  };
  const std::vector<Case> cases = {
      {false, "#2f6fed", "#2f6fed", false}, {false, "#ffff00", "#0a6cf0", false},
      {false, "#d8e6f2", "#0a6cf0", false}, {true, "#30363a", "#3b8cff", false},
      {true, "#ffff00", "#ffff00", true},
  };
  open();
  switchOn();
  for (const Case& each : cases) {
    wearFace(each.isDark, each.highlight);
    const QImage image = picture();
    const auto color = [&](QPoint place) {
      return image.pixelColor(place * view.devicePixelRatio());
    };
    EXPECT_EQ(color({3, 3}).lightness() < 60, each.isDark);
    EXPECT_EQ(color(at(toggle("Orvelle"), 0.2)), QColor(each.track)) << each.highlight;
    EXPECT_EQ(color(at(toggle("Orvelle"), 0.7)).lightness() < 60, each.isKnobDark);
  }
}

}  // namespace
}  // namespace orvelle
