#include "tests/shell/SettingsPortal.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMap>
#include <utility>

namespace orvelle {

namespace {

constexpr const char* kPortalConnection = "settings portal";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.Settings";

}  // namespace

SettingsPortal::SettingsPortal(const QString& busAddress, std::vector<Setting> settings)
    : bus_(QDBusConnection::connectToBus(busAddress, kPortalConnection)),
      settings_(std::move(settings)) {
  qDBusRegisterMetaType<QMap<QString, QVariantMap>>();
  bus_.registerVirtualObject(kPath, this);
  bus_.registerService("org.freedesktop.portal.Desktop");
}

SettingsPortal::~SettingsPortal() {
  QDBusConnection::disconnectFromBus(kPortalConnection);
}

void SettingsPortal::change(const Setting& setting) {
  QDBusMessage news = QDBusMessage::createSignal(kPath, kInterface, "SettingChanged");
  news << setting.group << setting.key << QVariant::fromValue(QDBusVariant(setting.value));
  bus_.send(news);
}

QString SettingsPortal::introspect(const QString& /*path*/) const {
  return {};
}

bool SettingsPortal::handleMessage(const QDBusMessage& message, const QDBusConnection& /*bus*/) {
  if (message.interface() != kInterface || message.member() != "ReadAll") {
    // Whoever asks for more waits half a minute for an answer.
    return bus_.send(message.createErrorReply(QDBusError::UnknownMethod, "not here"));
  }
  const QStringList wanted = message.arguments().first().toStringList();
  QMap<QString, QVariantMap> groups;
  for (const Setting& setting : settings_) {
    if (wanted.contains(setting.group)) {
      groups[setting.group][setting.key] = setting.value;
    }
  }
  return bus_.send(message.createReply(QVariant::fromValue(groups)));
}

}  // namespace orvelle
