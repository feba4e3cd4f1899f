#include "orvelle/platform/linux/IdleInhibitor.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QString>
#include <QThreadPool>

namespace orvelle {

namespace {

/// A login manager that is started by the question takes a moment.
constexpr int kAnswerMilliseconds = 5000;

/// Invalid when there is none to be had. The lock needs no connection to the bus once it is there,
/// so that none is kept.
QDBusUnixFileDescriptor inhibitIdle(const QString& reason) {
  const QString connection = QStringLiteral("app.orvelle.idle");
  QDBusMessage request = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
      QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
  request << QStringLiteral("idle") << QStringLiteral("Orvelle") << reason
          << QStringLiteral("block");
  const QDBusReply<QDBusUnixFileDescriptor> reply =
      QDBusConnection::connectToBus(QDBusConnection::SystemBus, connection)
          .call(request, QDBus::Block, kAnswerMilliseconds);
  QDBusConnection::disconnectFromBus(connection);
  return reply.isValid() ? reply.value() : QDBusUnixFileDescriptor();
}

}  // namespace

IdleInhibitor::IdleInhibitor(QThreadPool& worker, const std::string& reason)
    : lock_(std::make_shared<QDBusUnixFileDescriptor>()) {
  worker.start([wanted = std::weak_ptr(lock_), reason = QString::fromStdString(reason)] {
    if (wanted.expired()) {
      return;
    }
    const QDBusUnixFileDescriptor descriptor = inhibitIdle(reason);
    if (const auto lock = wanted.lock()) {
      *lock = descriptor;
    }
  });
}

}  // namespace orvelle
