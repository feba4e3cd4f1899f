#include "tests/panel/PanelRig.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPalette>
#include <QTest>
#include <QWheelEvent>
#include <filesystem>

#include "orvelle/panel/PanelView.h"

namespace orvelle {

namespace {

QAccessibleInterface* find(QAccessibleInterface* from, const QString& name,
                           QAccessible::Role role) {
  if (from->role() == role && from->text(QAccessible::Name) == name && !from->state().invisible) {
    return from;
  }
  for (int index = 0; index < from->childCount(); ++index) {
    if (auto* found = find(from->child(index), name, role)) {
      return found;
    }
  }
  return nullptr;
}

void collect(QQuickItem* from, const std::function<bool(QQuickItem&)>& condition,
             std::vector<QQuickItem*>& found) {
  if (!from->isVisible()) {
    return;
  }
  if (condition(*from)) {
    found.push_back(from);
  }
  for (QQuickItem* child : from->childItems()) {
    collect(child, condition, found);
  }
}

}  // namespace

PanelRig::PanelRig() {
  wearFace(false);
}

PanelRig::~PanelRig() {
  view.close();
}

void PanelRig::open() {
  loadPanel(view, *controller);
  ASSERT_EQ(view.status(), QQuickView::Ready) << view.errors().value(0).toString().toStdString();
  view.rootObject()->setProperty("reducedMotion", true);
  view.show();
  view.requestActivate();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
  settle();
}

void PanelRig::wearFace(bool dark, const char* highlight) {
  QPalette palette(dark ? QColor("#2a2a2e") : QColor("#efeff2"));
  const char* usual = dark ? "#3b82f6" : "#2f6fed";
  palette.setColor(QPalette::Highlight, QColor(highlight == nullptr ? usual : highlight));
  QGuiApplication::setPalette(palette);
  settle();
}

QAccessibleInterface* PanelRig::accessible(const QString& name, QAccessible::Role role) {
  return find(QAccessible::queryAccessibleInterface(&view), name, role);
}

QQuickItem* PanelRig::control(const QString& name, QAccessible::Role role) {
  settle();
  auto* found = accessible(name, role);
  EXPECT_NE(found, nullptr) << name.toStdString();
  return found == nullptr ? nullptr : qobject_cast<QQuickItem*>(found->object());
}

std::vector<QQuickItem*> PanelRig::items(const std::function<bool(QQuickItem&)>& condition) {
  settle();
  std::vector<QQuickItem*> found;
  collect(view.contentItem(), condition, found);
  return found;
}

QQuickItem* PanelRig::shownText(const QString& text) {
  const auto found = items([&](QQuickItem& item) {
    return item.inherits("QQuickText") && item.property("text").toString() == text;
  });
  return found.empty() ? nullptr : found.front();
}

bool PanelRig::shows(const QString& text) {
  return shownText(text) != nullptr;
}

QPoint PanelRig::at(QQuickItem* item, double x, double y) {
  settle();
  QMetaObject::invokeMethod(view.rootObject(), "reveal", Q_ARG(QQuickItem*, item));
  return item->mapToScene({item->width() * x, item->height() * y}).toPoint();
}

void PanelRig::click(QPoint place) {
  QTest::mouseClick(&view, Qt::LeftButton, {}, place);
  settle();
}

void PanelRig::wheel(QQuickItem* item, int notches, Qt::KeyboardModifiers modifiers) {
  turnWheel(at(item), notches, modifiers);
}

void PanelRig::turnWheel(QPoint place, int notches, Qt::KeyboardModifiers modifiers) {
  QWheelEvent event(place, view.mapToGlobal(place), {}, {0, notches * 120}, Qt::NoButton, modifiers,
                    Qt::NoScrollPhase, false);
  wheelMilliseconds_ += 10;
  event.setTimestamp(wheelMilliseconds_);
  QCoreApplication::sendEvent(&view, &event);
  settle();
}

void PanelRig::press(Qt::Key key, Qt::KeyboardModifiers modifiers) {
  QTest::keyClick(&view, key, modifiers);
  settle();
}

void PanelRig::hold(Qt::Key key) {
  const auto send = [&](QEvent::Type type, bool isRepeated) {
    QKeyEvent event(type, key, Qt::NoModifier, {}, isRepeated);
    QCoreApplication::sendEvent(&view, &event);
  };
  send(QEvent::KeyPress, false);
  for (int repetition = 0; repetition < 3; ++repetition) {
    // On X11 with a release before each press.
    send(QEvent::KeyRelease, true);
    send(QEvent::KeyPress, true);
  }
  send(QEvent::KeyRelease, false);
  settle();
}

void PanelRig::swipe(QPoint from, QPoint to) {
  const std::unique_ptr<QPointingDevice> screen(QTest::createTouchDevice());
  constexpr int kSteps = 40;
  QTest::touchEvent(&view, screen.get()).press(0, from);
  for (int step = 1; step <= kSteps; ++step) {
    QTest::touchEvent(&view, screen.get()).move(0, from + ((to - from) * step / kSteps));
  }
  QTest::touchEvent(&view, screen.get()).release(0, to);
  settle();
}

QImage PanelRig::picture() {
  settle();
  return view.grabWindow().convertToFormat(QImage::Format_RGB32);
}

void PanelRig::settle() {
  QCoreApplication::processEvents();
  if (view.isVisible()) {
    // Rows take their places when a frame is drawn.
    view.grabWindow();
  }
}

AudioObjectID PanelRig::playMusic() {
  // Only a panel that is on the screen has a level.
  services.windows = {{true, true, 300.0, 620.0}};
  switchOn();
  ProcessDescription loud;
  loud.pid = 101;
  // The volume at half makes 0.9 of both programs.
  loud.signal = [](std::int64_t, std::uint32_t) { return 7.1F; };
  const AudioObjectID program = hardware.launch(loud);
  heard();
  queue.advance(0.125);
  return program;
}

void PanelRig::installDrivers() {
  const std::filesystem::path folder = drivers_.path().toStdString();
  for (const char* name : {"ParrotAudioPlugin.driver", "BoomAudio.driver"}) {
    std::filesystem::create_directories(folder / name);
  }
  controller.reset();
  controller = std::make_unique<AudioController>(ControllerHost{
      {hardware, queue, worker, console}, worker, defaults, services, names, folder});
}

void PanelRig::fallAsleep() {
  switchOn();
  fallAsleepFromOn();
}

void PanelRig::fallAsleepFromOn() {
  controller->setIdleStandbyEnabled(true);
  hardware.setPlaying(player, false);
  heard();
  queue.advance(20.0);
  ASSERT_TRUE(controller->boostArmed());
}

}  // namespace orvelle
