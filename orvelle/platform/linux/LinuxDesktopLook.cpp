#include "orvelle/platform/linux/LinuxDesktopLook.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QMap>
#include <QPalette>
#include <QVariant>
#include <QWindow>

#include "orvelle/platform/linux/XServer.h"

namespace orvelle {

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kSettings = "org.freedesktop.portal.Settings";
constexpr const char* kGnome = "org.gnome.desktop.interface";
constexpr const char* kKde = "org.kde.kdeglobals.KDE";
constexpr const char* kAppearance = "org.freedesktop.appearance";

constexpr QRgb kDarkButton = 0xFF3B3B40;
constexpr QRgb kDarkWindow = 0xFF242427;

/// By group and key.
using Settings = QMap<QString, QVariantMap>;

bool isDark(const QPalette& palette) {
  return palette.color(QPalette::Window).lightness() <
         palette.color(QPalette::WindowText).lightness();
}

}  // namespace

LinuxDesktopLook::LinuxDesktopLook() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  bus.connect(kPortal, kPortalPath, kSettings, "SettingChanged", this,
              SLOT(settingTold(QDBusMessage)));
  QDBusMessage question =
      QDBusMessage::createMethodCall(kPortal, kPortalPath, kSettings, "ReadAll");
  question << QStringList{kGnome, kKde, kAppearance};
  auto* const call = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
  connect(call, &QDBusPendingCallWatcher::finished, this, [this, call] {
    const QDBusMessage reply = call->reply();
    if (reply.type() == QDBusMessage::ReplyMessage && reply.signature() == "a{sa{sv}}") {
      const auto settings = qdbus_cast<Settings>(reply.arguments().first());
      for (auto group = settings.begin(); group != settings.end(); ++group) {
        for (auto key = group->begin(); key != group->end(); ++key) {
          settingChanged(group.key(), key.key(), key.value());
        }
      }
    }
    call->deleteLater();
  });
}

/// A slot for the three values themselves is refused by Qt 6.4.
void LinuxDesktopLook::settingTold(const QDBusMessage& news) {
  const QVariantList arguments = news.arguments();
  if (news.signature() == "ssv") {
    settingChanged(arguments[0].toString(), arguments[1].toString(),
                   arguments[2].value<QDBusVariant>().variant());
  }
}

void LinuxDesktopLook::settingChanged(const QString& group, const QString& key,
                                      const QVariant& value) {
  if (group == kGnome && key == "enable-animations") {
    hasAnimations_ = value.toBool();
  } else if (group == kKde && key == "AnimationDurationFactor") {
    animationFactor_ = value.toDouble();
  } else if (group == kAppearance && key == "reduced-motion") {
    reducedMotion_ = value.toUInt();
  } else if (group == kAppearance && key == "color-scheme") {
    colorScheme_ = value.toUInt();
    applyColorScheme();
  }
}

bool LinuxDesktopLook::wantsReducedMotion() const {
  return !hasAnimations_ || animationFactor_ == 0.0 || reducedMotion_ == 1;
}

void LinuxDesktopLook::applyColorScheme() const {
  QGuiApplication::setPalette(QPalette());  // the desktop's own
  if (colorScheme_ == 1 && !isDark(QGuiApplication::palette())) {
    QGuiApplication::setPalette(
        QPalette(QColor::fromRgb(kDarkButton), QColor::fromRgb(kDarkWindow)));
  }
}

/// Of the X server only with a compositing manager, of Wayland's always.
bool LinuxDesktopLook::hasTranslucency() const {
  auto* const connection = xConnection();
  return connection == nullptr ||
         xSelectionOwner(connection, xScreenSelection(connection, "_NET_WM_CM_S")) != 0;
}

/// The bars of GNOME and Cinnamon are dark in both of their faces. No desktop tells; elsewhere the
/// best guess is that its bar looks as its windows do.
bool LinuxDesktopLook::isPanelDark() const {
  const QString desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
  return desktop.contains("GNOME") || desktop.contains("Cinnamon") ||
         isDark(QGuiApplication::palette());
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
