#include "orvelle/platform/linux/LinuxDesktopLook.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QPalette>
#include <QWindow>

#include "orvelle/platform/linux/XServer.h"

namespace orvelle {

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kSettings = "org.freedesktop.portal.Settings";
constexpr const char* kGroup = "org.gnome.desktop.interface";
constexpr const char* kKey = "enable-animations";

/// The portal wraps values once or twice, depending on its age.
bool toBool(QVariant value) {
  while (value.userType() == qMetaTypeId<QDBusVariant>()) {
    value = value.value<QDBusVariant>().variant();
  }
  return value.toBool();
}

}  // namespace

LinuxDesktopLook::LinuxDesktopLook() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  bus.connect(kPortal, kPortalPath, kSettings, "SettingChanged", this,
              SLOT(settingChanged(QString, QString, QDBusVariant)));
  QDBusMessage question = QDBusMessage::createMethodCall(kPortal, kPortalPath, kSettings, "Read");
  question << kGroup << kKey;
  auto* const call = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
  connect(call, &QDBusPendingCallWatcher::finished, this, [this, call] {
    const QDBusPendingReply<QDBusVariant> reply = *call;
    if (reply.isValid()) {
      settingChanged(kGroup, kKey, reply.value());
    }
    call->deleteLater();
  });
}

void LinuxDesktopLook::settingChanged(const QString& group, const QString& key,
                                      const QDBusVariant& value) {
  if (group == kGroup && key == kKey) {
    hasAnimations_ = toBool(value.variant());
  }
}

/// Of the X server only with a compositing manager, of Wayland's always.
bool LinuxDesktopLook::hasTranslucency() const {
  auto* const connection = xConnection();
  return connection == nullptr ||
         xSelectionOwner(connection, xScreenSelection(connection, "_NET_WM_CM_S")) != 0;
}

/// GNOME's bar is dark in both of its faces. Elsewhere the panel wears that of the windows.
bool LinuxDesktopLook::isPanelDark() const {
  const QPalette palette = QGuiApplication::palette();
  return qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains("GNOME") ||
         palette.color(QPalette::Window).lightness() <
             palette.color(QPalette::WindowText).lightness();
}

/// Some window managers conclude it from the type of a tool window, others do not.
void LinuxDesktopLook::keepOutOfTaskBar(QWindow& window) const {
  if (auto* const connection = xConnection()) {
    addWindowStates(connection, static_cast<std::uint32_t>(window.winId()),
                    {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"});
  }
}

std::unique_ptr<DesktopLook> openDesktopLook() {
  return std::make_unique<LinuxDesktopLook>();
}

}  // namespace orvelle
