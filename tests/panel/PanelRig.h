// The real panel in a window, over the real controller on simulated hardware.
#pragma once

#include <QAccessible>
#include <QImage>
#include <QQuickItem>
#include <QQuickView>
#include <QString>
#include <QTemporaryDir>
#include <functional>
#include <vector>

#include "tests/ControllerRig.h"

namespace orvelle {

class PanelRig : public ControllerRig {
 protected:
  PanelRig();
  ~PanelRig() override;

  /// Opens the panel on the controller as it is. Nothing moves of itself.
  void open();
  /// In a desktop's usual colour of selected things, or another.
  void wearFace(bool dark, const char* highlight = nullptr);

  /// What assistive technology finds under the name; null where it finds nothing.
  QAccessibleInterface* accessible(const QString& name, QAccessible::Role role);
  /// The item behind it. Fails the test where there is none.
  QQuickItem* control(const QString& name, QAccessible::Role role);
  QQuickItem* slider(const QString& name) { return control(name, QAccessible::Slider); }
  QQuickItem* button(const QString& name) { return control(name, QAccessible::Button); }
  QQuickItem* toggle(const QString& name) { return control(name, QAccessible::CheckBox); }

  /// Whether some item shows exactly this text.
  bool shows(const QString& text);
  QQuickItem* shownText(const QString& text);
  /// Every visible item for which `condition` holds, from the top of the column on.
  std::vector<QQuickItem*> items(const std::function<bool(QQuickItem&)>& condition);

  /// A place in an item, as fractions of its size, in the window; scrolled into sight first.
  QPoint at(QQuickItem* item, double x = 0.5, double y = 0.5);
  void click(QQuickItem* item) { click(at(item)); }
  void click(QPoint place);
  void wheel(QQuickItem* item, int notches, Qt::KeyboardModifiers modifiers = {});
  void turnWheel(QPoint place, int notches, Qt::KeyboardModifiers modifiers = {});
  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {});
  /// Until it has repeated itself three times.
  void hold(Qt::Key key);
  /// With a finger.
  void swipe(QPoint from, QPoint to);
  void tap(QPoint place) { swipe(place, place); }

  /// Lets the views follow, and takes a picture.
  QImage picture();
  /// Lets the views follow.
  void settle();

  void editBands() {
    controller->setEqEnabled(true);
    controller->setEqSelection("Custom");
  }
  /// Switches on, and lets a program play as loudly as it can.
  AudioObjectID playMusic();
  /// Two drivers beside ours, and a controller made anew, which finds them.
  void installDrivers();
  /// Takes the boost to sleep.
  void fallAsleep();
  void fallAsleepFromOn();

  QQuickView view;

 private:
  QTemporaryDir drivers_;
  quint64 wheelMilliseconds_ = 0;
};

}  // namespace orvelle
