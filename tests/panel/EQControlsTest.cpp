// The equaliser's rows under mouse, keys, touch and wheel.
#include <QTest>

#include "tests/panel/PanelRig.h"

namespace orvelle {
namespace {

class EQControls : public PanelRig {
 protected:
  QQuickItem* picker() { return control("Preset", QAccessible::ComboBox); }
  QQuickItem* choice(const QString& text) { return control(text, QAccessible::ListItem); }
  QString pickerText() { return picker()->property("displayText").toString(); }

  void type(const QString& text) {
    click(control("Name this preset", QAccessible::EditableText));
    for (const QChar letter : text) {
      QTest::keyClick(&view, letter.toLatin1());
    }
    settle();
  }
  double gain(int band) { return controller->customGains().at(band); }
  bool offers(const QString& name) {
    settle();
    return accessible(name, QAccessible::Button) != nullptr;
  }
};

// Would catch a preset that is missing or in another place, a choice that has no effect, and a list
// that can be opened while the equaliser is off.
TEST_F(EQControls, PickerOffersEveryPreset) {
  controller->saveUserPreset("b");
  controller->saveUserPreset("Z");
  controller->saveUserPreset("Music");
  controller->setEqSelection("Flat");
  open();
  click(picker());
  EXPECT_EQ(accessible("Treble", QAccessible::ListItem), nullptr) << "off";

  click(toggle("EQ"));
  click(picker());
  QStringList offered;
  for (QQuickItem* item :
       items([](QQuickItem& each) { return each.inherits("QQuickItemDelegate"); })) {
    offered.append(item->property("text").toString());
  }
  EXPECT_EQ(offered,
            (QStringList{"Flat", "Music", "Bass Boost", "Treble", "Vocal", "Loudness", "Podcast",
                         "Classical", "Gaming", "Electronic", "Custom", "★ Music", "★ Z", "★ b"}));
  QTest::mouseClick(&view, Qt::LeftButton, {},
                    choice("Treble")->mapToScene({40.0, 12.0}).toPoint());
  EXPECT_EQ(controller->eqSelection(), "Treble");
  EXPECT_EQ(pickerText(), "Treble");

  picker()->forceActiveFocus();
  press(Qt::Key_Space);
  press(Qt::Key_Down);
  press(Qt::Key_Return);
  EXPECT_EQ(controller->eqSelection(), "Vocal");
  click(picker());
  press(Qt::Key_Escape);
  EXPECT_TRUE(view.isVisible());
  EXPECT_EQ(controller->eqSelection(), "Vocal");
  controller->setEqSelection("from an old record");
  EXPECT_EQ(pickerText(), "") << "nothing that is not so";
}

// Would catch a name that is saved though it says nothing, one that is changed on its way, a field
// that keeps it, and buttons that are there or missing at the wrong time.
TEST_F(EQControls, SavesResetsAndDeletes) {
  editBands();
  controller->setCustomGains({1.0, 2.0, 3.0, 4.0, 5.0, -5.0, -4.0, -3.0, -2.0, -1.0});
  open();
  EXPECT_TRUE(offers("Reset"));
  EXPECT_FALSE(offers("Delete"));
  type("  ");
  EXPECT_FALSE(button("Save")->isEnabled());
  press(Qt::Key_Return);
  EXPECT_TRUE(controller->userPresets().isEmpty());

  type("Mine ");
  click(button("Save"));
  EXPECT_EQ(controller->userPresets().keys(), QStringList{"Mine"});
  EXPECT_EQ(pickerText(), "★ Mine");
  EXPECT_FALSE(button("Save")->isEnabled()) << "the field is empty again";

  click(button("Reset"));
  EXPECT_EQ(controller->customGains(), QList<double>(10, 0.0));
  EXPECT_EQ(controller->eqSelection(), "Mine");
  click(button("Delete"));
  EXPECT_TRUE(controller->userPresets().isEmpty());
  EXPECT_EQ(pickerText(), "Custom");
  EXPECT_FALSE(offers("Delete"));
}

// Would catch a button that goes and takes the keyboard's place in the panel with it.
TEST_F(EQControls, KeyboardStaysWhereItSaves) {
  editBands();
  open();
  const auto pressButton = [this](const QString& name) {
    button(name)->forceActiveFocus(Qt::TabFocusReason);
    press(Qt::Key_Space);
  };
  type("Mine");
  pressButton("Save");
  EXPECT_EQ(view.activeFocusItem(), control("Name this preset", QAccessible::EditableText));
  pressButton("Delete");
  EXPECT_EQ(view.activeFocusItem(), picker());
  EXPECT_TRUE(picker()->property("visualFocus").toBool());
  EXPECT_TRUE(controller->userPresets().isEmpty());
}

struct Place {
  double y;  ///< of the frame's 68 pixels
  double gainDb;
};

// Would catch a fader that moves another band, that jumps, snaps or leaves its range, that waits
// for a movement, or that the column under it takes a drag or a touch from.
TEST_F(EQControls, FadersFollowThePointer) {
  editBands();
  open();
  QQuickItem* fader = slider("1 kHz");
  EXPECT_EQ(QSizeF(fader->width(), fader->height()), QSizeF(22.0, 68.0));
  const QPoint top = fader->mapToScene({11.0, 0.0}).toPoint();
  for (const Place& place : {Place{17.0, 6.0}, {34.0, 0.0}, {51.0, -6.0}, {0.0, 12.0}}) {
    QTest::mousePress(&view, Qt::LeftButton, {}, top + QPoint(0, static_cast<int>(place.y)));
    EXPECT_NEAR(gain(5), place.gainDb, 1e-9) << place.y;
    QTest::mouseRelease(&view, Qt::LeftButton, {}, top + QPoint(0, static_cast<int>(place.y)));
  }
  QTest::mousePress(&view, Qt::LeftButton, {}, top + QPoint(0, 30));
  QTest::mouseMove(&view, top + QPoint(0, -40));
  EXPECT_EQ(gain(5), 12.0) << "above the top";
  QTest::mouseMove(&view, top + QPoint(90, 200));
  EXPECT_EQ(gain(5), -12.0) << "below the bottom";
  QTest::mouseMove(&view, top + QPoint(0, 51));
  QTest::mouseRelease(&view, Qt::LeftButton, {}, top + QPoint(0, 51));
  EXPECT_NEAR(gain(5), -6.0, 1e-9);

  swipe(top + QPoint(0, 60), top + QPoint(0, 17));
  EXPECT_NEAR(gain(5), 6.0, 1e-9) << "by finger";
  EXPECT_EQ(controller->customGains().count(0.0), 9) << "no other band";
}

// Would catch a fader that a keyboard or a wheel cannot move, or moves as coarsely as ever.
TEST_F(EQControls, FadersTakeKeysAndWheel) {
  editBands();
  open();
  QQuickItem* fader = slider("32 Hz");
  fader->forceActiveFocus(Qt::TabFocusReason);
  const std::vector<std::pair<QKeyCombination, double>> steps = {
      {Qt::Key_Up, 1.0},       {Qt::Key_PageUp, 4.0}, {Qt::SHIFT | Qt::Key_Down, 3.9},
      {Qt::Key_PageDown, 0.9}, {Qt::Key_Home, -12.0}, {Qt::Key_Left, -12.0},
      {Qt::Key_End, 12.0},
  };
  for (const auto& [combination, expected] : steps) {
    press(combination.key(), combination.keyboardModifiers());
    EXPECT_NEAR(gain(0), expected, 1e-9);
  }
  wheel(fader, -2);
  EXPECT_NEAR(gain(0), 10.0, 1e-9);
  wheel(fader, 1, Qt::ControlModifier);
  EXPECT_NEAR(gain(0), 10.1, 1e-9);
}

// Would catch a knob that leaves the frame, a bar on the wrong side or where there is none.
TEST_F(EQControls, FadersDrawTheirValue) {
  editBands();
  controller->setCustomGains({12.0, 6.0, 0.0, -6.0, -12.0, 0.0, 0.0, 0.0, 0.0, 0.0});
  open();
  const QImage image = picture();
  const double scale = view.devicePixelRatio();
  const auto isAccent = [&](QQuickItem* fader, double y) {
    const QPointF place = fader->mapToScene({10.5, y}) * scale;
    return image.pixelColor(place.toPoint()).saturation() > 90;
  };
  struct Case {
    const char* name;
    std::vector<double> lit;
    std::vector<double> quiet;
  };
  const std::vector<Case> cases = {
      {"32 Hz", {3.0, 6.0, 20.0, 32.0}, {36.0, 60.0}},
      {"64 Hz", {17.0, 26.0, 32.0}, {9.0, 40.0}},
      {"125 Hz", {34.0, 30.0, 38.0}, {26.0, 42.0}},
      {"250 Hz", {51.0, 42.0, 37.0}, {59.0, 28.0}},
      {"500 Hz", {65.0, 62.0, 50.0, 37.0}, {31.0, 8.0}},
  };
  for (const Case& each : cases) {
    for (const double y : each.lit) {
      EXPECT_TRUE(isAccent(slider(each.name), y)) << each.name << " at " << y;
    }
    for (const double y : each.quiet) {
      EXPECT_FALSE(isAccent(slider(each.name), y)) << each.name << " at " << y;
    }
  }
}

// Would catch a wheel or a finger that turns up the sound while the user scrolls past, and a fader
// that moves away from the pointer which presses it.
TEST_F(EQControls, ScrollingPastChangesNothing) {
  editBands();
  controller->setIdleStandbyEnabled(true);
  controller->toggle();
  queue.advance(0.2);
  open();
  view.resize(300, 300);
  view.rootObject()->setHeight(300.0);
  settle();
  const auto titleY = [this] { return shownText("Orvelle")->mapToScene({0.0, 0.0}).y(); };
  const double top = titleY();
  QQuickItem* fader = slider("1 kHz");
  EXPECT_FALSE(view.contentItem()->contains(fader->mapToScene({0.0, 68.0}))) << "partly hidden";
  click(fader->mapToScene({11.0, 17.0}).toPoint());
  EXPECT_NEAR(gain(5), 6.0, 1e-9);
  EXPECT_EQ(titleY(), top);

  const QList<double> gains = controller->customGains();
  const double boost = controller->boost();
  for (int notch = 0; notch < 100 && titleY() > -250.0; ++notch) {
    turnWheel({150, 40}, -1);
    QTest::qWait(10);
  }
  EXPECT_LT(titleY(), -250.0) << "past slider and faders";
  swipe({10, 40}, {10, 280});
  EXPECT_TRUE(QTest::qWaitFor([&] { return titleY() == top; })) << "by finger";
  const QPoint track = at(slider("Volume Boost"), 0.8);
  swipe(track, track - QPoint(0, 60));
  EXPECT_LT(titleY(), top - 30.0) << "by finger, past the slider";
  EXPECT_EQ(controller->customGains(), gains);
  EXPECT_EQ(controller->boost(), boost);
}

}  // namespace
}  // namespace orvelle
