#include "orvelle/shell/TrayIcon.h"

#include <QCoreApplication>
#include <QEvent>

#include "orvelle/panel/OrvelleIcon.h"

namespace orvelle {

TrayIcon::TrayIcon(TrayHost& host, const DesktopLook& look, const AudioController& controller)
    : host_(host), look_(look), controller_(controller) {
  connect(&controller, &AudioController::isOnChanged, this, &TrayIcon::draw);
  connect(&controller, &AudioController::boostArmedChanged, this, &TrayIcon::draw);
  QCoreApplication::instance()->installEventFilter(this);
  host_.onChange = [this] { followHost(); };
  followHost();
}

TrayIcon::~TrayIcon() {
  host_.onChange = nullptr;
}

/// A new icon for each host: Qt finds no second one for an icon that has lost its first.
void TrayIcon::followHost() {
  if (host_.isPresent() == isShown()) {
    return;
  }
  if (isShown()) {
    icon_.reset();
  } else {
    icon_.emplace();
    icon_->setToolTip("Orvelle");
    connect(&*icon_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
              if (reason != QSystemTrayIcon::MiddleClick && reason != QSystemTrayIcon::Unknown) {
                emit clicked();
              }
            });
    draw();
    icon_->show();
  }
  emit isShownChanged();
}

void TrayIcon::draw() {
  if (isShown()) {
    const bool isActive = controller_.isOn() || controller_.boostArmed();
    const QColor colour = look_.isPanelDark() ? Qt::white : Qt::black;
    icon_->setIcon(look_.takesWideIcons() ? wideIcon(isActive, colour)
                                          : trayIcon(isActive, colour));
  }
}

QRect TrayIcon::geometry() const {
  return isShown() ? icon_->geometry() : QRect();
}

bool TrayIcon::eventFilter(QObject* object, QEvent* event) {
  if (object == QCoreApplication::instance() && event->type() == QEvent::ApplicationPaletteChange) {
    draw();
  }
  return false;
}

}  // namespace orvelle
