#include "orvelle/platform/linux/LinuxTrayHost.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <utility>

namespace orvelle {

namespace {

/// Keeps the list of hosts and icons; the hosts themselves come and go behind it.
constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
constexpr const char* kWatcherPath = "/StatusNotifierWatcher";

}  // namespace

LinuxTrayHost::LinuxTrayHost()
    : bus_(QDBusConnection::sessionBus()),
      serviceWatcher_(kWatcher, bus_, QDBusServiceWatcher::WatchForOwnerChange),
      // Later: Qt hears of the tray after this does, and its icons have to find it known.
      xEmbed_([this] {
        QMetaObject::invokeMethod(
            this, [this] { update(); }, Qt::QueuedConnection);
      }) {
  connect(&serviceWatcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
          &LinuxTrayHost::askWatcher);
  for (const char* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
    bus_.connect(kWatcher, kWatcherPath, kWatcher, signal, this, SLOT(askWatcher()));
  }
  askWatcher();
}

void LinuxTrayHost::askWatcher() {
  QDBusMessage question = QDBusMessage::createMethodCall(kWatcher, kWatcherPath,
                                                         "org.freedesktop.DBus.Properties", "Get");
  question << kWatcher << "IsStatusNotifierHostRegistered";
  question.setAutoStartService(false);
  auto* const call = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
  connect(call, &QDBusPendingCallWatcher::finished, this, [this, call] {
    const QDBusPendingReply<QDBusVariant> reply = *call;
    hasNotifierHost_ = reply.isValid() && reply.value().variant().toBool();
    hasAnswer_ = true;
    call->deleteLater();
    update();
  });
}

void LinuxTrayHost::update() {
  if (!hasAnswer_) {
    return;  // the preferred kind has not been heard
  }
  if (kind_ == Kind::unknown && hasNotifierHost_) {
    kind_ = Kind::notifier;
  } else if (kind_ == Kind::unknown && xEmbed_.isPresent()) {
    kind_ = Kind::xEmbed;
  }
  const bool isPresent = (kind_ == Kind::notifier && hasNotifierHost_) ||
                         (kind_ == Kind::xEmbed && xEmbed_.isPresent());
  if (std::exchange(isPresent_, isPresent) != isPresent && onChange) {
    onChange();
  }
}

std::unique_ptr<TrayHost> openTrayHost() {
  return std::make_unique<LinuxTrayHost>();
}

}  // namespace orvelle
