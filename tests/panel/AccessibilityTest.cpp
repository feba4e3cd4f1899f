// The panel for those who do not see it, or do not use a pointer.
#include <QTest>

#include "tests/panel/PanelRig.h"

namespace orvelle {
namespace {

class Accessibility : public PanelRig {
 protected:
  static QString describe(QAccessibleInterface* of) {
    QString text = of->text(QAccessible::Name) + ": ";
    if (auto* value = of->valueInterface()) {
      return text + QString("%1 of %2 to %3")
                        .arg(value->currentValue().toDouble())
                        .arg(value->minimumValue().toDouble())
                        .arg(value->maximumValue().toDouble());
    }
    switch (of->role()) {
      case QAccessible::CheckBox:
        return text + (of->state().checked ? "on" : "off");
      case QAccessible::Button:
        return text + "button";
      case QAccessible::ComboBox:
      case QAccessible::ProgressBar:
        return text + of->text(QAccessible::Description);
      case QAccessible::EditableText:
        return text + "text";
      default:
        return text + QString::number(of->role());
    }
  }

  /// Everything that Tab reaches, in order, until it comes round.
  QStringList tabOrder() {
    QStringList reached;
    for (int presses = 0; presses < 40; ++presses) {
      press(Qt::Key_Tab);
      QQuickItem* focused = view.activeFocusItem();
      auto* told = QAccessible::queryAccessibleInterface(focused);
      const QString text = told == nullptr ? QString("nothing told") : describe(told);
      if (!reached.isEmpty() && text == reached.front()) {
        return reached;
      }
      reached.append(text);
      const QRectF frame = focused->mapRectToScene(focused->boundingRect());
      EXPECT_TRUE(QRectF(0.0, 0.0, 300.0, 620.0).contains(frame)) << text.toStdString();
    }
    return reached;
  }
};

// Would catch a control that the keyboard does not reach, or out of order; one without a name, a
// role, a value or bounds; and one that is reached out of sight.
TEST_F(Accessibility, TabReachesEveryControl) {
  editBands();
  controller->saveUserPreset("Mine");
  controller->setCustomGains({3.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, -12.0});
  controller->setSpatialEnabled(true);
  open();
  EXPECT_EQ(tabOrder(), (QStringList{"Orvelle: off",
                                     "Volume Boost: 2 of 1 to 5",
                                     "EQ: on",
                                     "Preset: ★ Mine",
                                     "32 Hz: 3 of -12 to 12",
                                     "64 Hz: 0 of -12 to 12",
                                     "125 Hz: 0 of -12 to 12",
                                     "250 Hz: 0 of -12 to 12",
                                     "500 Hz: 0 of -12 to 12",
                                     "1 kHz: 0 of -12 to 12",
                                     "2 kHz: 0 of -12 to 12",
                                     "4 kHz: 0 of -12 to 12",
                                     "8 kHz: 0 of -12 to 12",
                                     "16 kHz: -12 of -12 to 12",
                                     "Name this preset: text",
                                     "Reset: button",
                                     "Delete: button",
                                     "3D Surround: on",
                                     "3D Surround width: 1.5 of 1 to 2.5",
                                     "Start at login: off",
                                     "Idle power saving: off",
                                     "Quit Orvelle: button"}));
}

// Would catch a value that assistive technology sets and only the picture follows, a control that
// does not answer to it, and one that does so while it is disabled.
TEST_F(Accessibility, AssistiveTechnologySetsValues) {
  open();
  const auto set = [this](const QString& name, double value) {
    settle();
    accessible(name, QAccessible::Slider)->valueInterface()->setCurrentValue(value);
    settle();
    return accessible(name, QAccessible::Slider)->valueInterface()->currentValue().toDouble();
  };
  const auto act = [this](const QString& name, QAccessible::Role role, const QString& action) {
    settle();
    QAccessibleInterface* found = accessible(name, role);
    ASSERT_NE(found, nullptr) << name.toStdString();
    ASSERT_TRUE(found->actionInterface()->actionNames().contains(action)) << name.toStdString();
    found->actionInterface()->doAction(action);
    settle();
  };
  const QString press = QAccessibleActionInterface::pressAction();
  const QString increase = QAccessibleActionInterface::increaseAction();
  EXPECT_EQ(set("3D Surround width", 2.25), 1.5) << "disabled";
  act("3D Surround width", QAccessible::Slider, increase);
  EXPECT_EQ(controller->spatialWidth(), 1.5) << "disabled";
  act("Preset", QAccessible::ComboBox, press);
  EXPECT_EQ(accessible("Podcast", QAccessible::ListItem), nullptr) << "disabled";

  editBands();
  controller->setSpatialEnabled(true);
  act("3D Surround width", QAccessible::Slider, increase);
  EXPECT_NEAR(controller->spatialWidth(), 1.55, 1e-9);
  act("64 Hz", QAccessible::Slider, QAccessibleActionInterface::decreaseAction());
  EXPECT_EQ(controller->customGains().at(1), -1.0);
  EXPECT_EQ(set("Volume Boost", 4.0), 4.0);
  EXPECT_EQ(controller->boost(), 4.0);
  EXPECT_EQ(set("3D Surround width", 2.25), 2.25);
  EXPECT_EQ(controller->spatialWidth(), 2.25);
  EXPECT_EQ(set("8 kHz", -7.5), -7.5);
  EXPECT_EQ(controller->customGains().at(8), -7.5);

  act("3D Surround", QAccessible::CheckBox, QAccessibleActionInterface::toggleAction());
  EXPECT_FALSE(controller->spatialEnabled());
  act("Orvelle", QAccessible::CheckBox, QAccessibleActionInterface::toggleAction());
  EXPECT_TRUE(controller->startInProgress());
  EXPECT_FALSE(accessible("Orvelle", QAccessible::CheckBox)->state().checked) << "not yet";
  act("Preset", QAccessible::ComboBox, press);
  act("Podcast", QAccessible::ListItem, press);
  EXPECT_EQ(controller->eqSelection(), "Podcast");
}

// Would catch texts that are seen and not told, and a meter that says nothing, not what the boost
// plays, or something while the boost sleeps.
TEST_F(Accessibility, TellsWhatIsShown) {
  open();
  const auto level = [this] {
    settle();
    auto* meter = accessible("Level", QAccessible::ProgressBar);
    return meter == nullptr ? QString("nothing told") : describe(meter);
  };
  EXPECT_EQ(level(), "Level: 0 %");
  const AudioObjectID program = playMusic();
  EXPECT_EQ(level(), "Level: 90 %");
  hardware.quitProcess(program);
  fallAsleepFromOn();
  EXPECT_EQ(level(), "Level: 0 %") << "armed";
  controller->stop();
  hardware.inject({.kind = CallKind::createAggregateDevice});
  controller->toggle();
  queue.advance(15.0);
  settle();
  for (const QString& text :
       {controller->lastError(), controller->deviceName(), controller->dbLabel()}) {
    EXPECT_FALSE(text.isEmpty());
    EXPECT_NE(accessible(text, QAccessible::StaticText), nullptr) << text.toStdString();
  }
}

}  // namespace
}  // namespace orvelle
