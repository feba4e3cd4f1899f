#include "orvelle/shell/PanelWindow.h"

#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlError>
#include <QQuickItem>
#include <QScreen>
#include <algorithm>

#include "orvelle/panel/OrvelleIcon.h"
#include "orvelle/panel/PanelView.h"

namespace orvelle {

namespace {

constexpr QSize kPanelSize(300, 620);
constexpr double kCornerRadius = 10.0;
/// Keeps the panel's border, which a window without translucent corners has, too.
constexpr double kSquareCornerRadius = 1.0;
/// The click that closes the panel reaches the icon a moment later, and must not open it again. And
/// a double click is one for most people.
constexpr qint64 kSameClickMilliseconds = 250;

/// It scrolls where the screen is lower.
QSize sizeOn(const QRect& available) {
  return {kPanelSize.width(), std::min(kPanelSize.height(), available.height())};
}

/// Centred on the icon, on that side of it where the room is.
QPoint placeByIcon(const QRect& icon, QSize panel, const QRect& available) {
  const bool isBelow = icon.center().y() < available.center().y();
  const int x = icon.center().x() - panel.width() / 2;
  const int y = isBelow ? icon.bottom() + 1 : icon.top() - panel.height();
  const QPoint last = available.bottomRight() - QPoint(panel.width() - 1, panel.height() - 1);
  return {std::max(std::min(x, last.x()), available.left()),
          std::max(std::min(y, last.y()), available.top())};
}

}  // namespace

PanelWindow::PanelWindow(AudioController& controller, const DesktopLook& look)
    : controller_(controller), look_(look) {}

PanelWindow::~PanelWindow() = default;

/// A window manager keeps much of what a window once was: one of the other kind is made anew. False
/// where a part of Qt that the views import is not installed.
bool PanelWindow::prepare(bool isPlain) {
  const bool isTranslucent = !isPlain && look_.hasTranslucency();
  if (!view_ || isPlain_ != isPlain || isTranslucent_ != isTranslucent) {
    isPlain_ = isPlain;
    isTranslucent_ = isTranslucent;
    load();
  }
  if (view_->rootObject() == nullptr) {
    const QList<QQmlError> errors = view_->errors();
    emit loadFailed(errors.isEmpty() ? QString() : errors.first().description());
    return false;
  }
  view_->rootObject()->setProperty("reducedMotion", look_.wantsReducedMotion());
  return true;
}

void PanelWindow::load() {
  view_.emplace();
  QSurfaceFormat format = view_->format();
  format.setAlphaBufferSize(8);
  view_->setFormat(format);
  view_->setTitle("Orvelle");
  view_->setResizeMode(QQuickView::SizeRootObjectToView);
  view_->setIcon(trayIcon(true, QGuiApplication::palette().windowText().color()));
  const double cornerRadius = isTranslucent_ ? kCornerRadius : kSquareCornerRadius;
  view_->setColor(isTranslucent_ ? QColor(Qt::transparent)
                                 : QGuiApplication::palette().window().color());
  view_->setFlags(isPlain_ ? Qt::Window
                           : Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
  loadPanel(*view_, controller_, {.cornerRadius = isPlain_ ? 0.0 : cornerRadius});
  view_->installEventFilter(this);
  connect(&*view_, &QWindow::activeChanged, this, &PanelWindow::activeChanged);
  if (const QQuickItem* const panel = view_->rootObject()) {
    connect(panel, SIGNAL(quitRequested()), this, SIGNAL(quitRequested()));
    connect(panel, SIGNAL(closeRequested()), this, SLOT(escape()));
  }
}

void PanelWindow::present() {
  if (!isOpen()) {
    sinceChange_.start();
  }
  view_->show();
  view_->raise();
  view_->requestActivate();
}

void PanelWindow::openByIcon(const QRect& icon) {
  if (!isOpen()) {
    if (!prepare(false)) {
      return;
    }
    const QRect place = icon.isEmpty() ? QRect(QCursor::pos(), QSize(1, 1)) : icon;
    const QScreen* screen = QGuiApplication::screenAt(place.center());
    screen = screen == nullptr ? QGuiApplication::primaryScreen() : screen;
    const QRect available = screen->availableGeometry();
    const QSize size = sizeOn(available);
    view_->setGeometry({placeByIcon(place, size, available), size});
    look_.keepOutOfTaskBar(*view_);
  }
  present();
}

void PanelWindow::toggleByIcon(const QRect& icon) {
  if (sinceChange_.isValid() && sinceChange_.elapsed() < kSameClickMilliseconds) {
    return;
  }
  if (isOpen() && !isPlain_) {
    hide();
  } else {
    openByIcon(icon);
  }
}

void PanelWindow::openPlain() {
  if (!isOpen()) {
    if (!prepare(true)) {
      return;
    }
    view_->setMinimumSize({kPanelSize.width(), 0});
    view_->setMaximumSize(kPanelSize);
    view_->resize(sizeOn(view_->screen()->availableGeometry()));
  }
  present();
}

void PanelWindow::closePlainUnlessActive() {
  if (isOpen() && isPlain_ && !view_->isActive()) {
    hide();
  }
}

void PanelWindow::hide() {
  view_->hide();
  sinceChange_.start();
}

void PanelWindow::escape() {
  if (!isPlain_) {
    hide();
  }
}

void PanelWindow::activeChanged() {
  if (isOpen() && !isPlain_ && !view_->isActive()) {
    hide();
  }
}

/// Hidden instead of taken apart. The event stays accepted: a window that refuses to close would
/// keep the session from ending.
bool PanelWindow::eventFilter(QObject* /*object*/, QEvent* event) {
  if (event->type() != QEvent::Close) {
    return false;
  }
  hide();
  if (isPlain_) {
    emit plainClosed();
  }
  return true;
}

}  // namespace orvelle
