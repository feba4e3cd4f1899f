#include "orvelle/platform/qt/SingleInstance.h"

#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <cstdio>

namespace orvelle {

namespace {

constexpr int kPatienceMilliseconds = 5000;
constexpr int kPauseMilliseconds = 20;

QString display() {
  const bool isX = QGuiApplication::platformName() == "xcb";
  return qEnvironmentVariable(isX ? "DISPLAY" : "WAYLAND_DISPLAY");
}

/// A path without a suffix, each display its own.
QString runtimePath() {
  QString name = "orvelle-panel-" + QGuiApplication::platformName() + "-" + display();
  name.replace(QRegularExpression("[^A-Za-z0-9.-]"), "-");
  return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + "/" + name;
}

}  // namespace

SingleInstance::SingleInstance() : address_(runtimePath()), lock_(address_ + ".lock") {
  lock_.setStaleLockTime(0);  // however long it runs: only its end makes the lock stale
  lock_.tryLock(0);
  if (!isFirst()) {
    return;
  }
  QLocalServer::removeServer(address_);
  QObject::connect(&server_, &QLocalServer::newConnection, &server_, [this] {
    while (QLocalSocket* const caller = server_.nextPendingConnection()) {
      caller->disconnectFromServer();
      caller->deleteLater();
      if (onCall) {
        onCall();
      }
    }
  });
  server_.setSocketOptions(QLocalServer::UserAccessOption);
  if (!lock_.isLocked() || !server_.listen(address_)) {
    std::fprintf(stderr, "A second start will not find this one: %s cannot be used.\n",
                 qPrintable(address_));
  }
}

/// The call is the connection, its end the answer. The first one may hold the lock and not listen
/// yet.
bool SingleInstance::callFirst() const {
  QDeadlineTimer deadline(kPatienceMilliseconds);
  do {
    QLocalSocket socket;
    socket.connectToServer(address_);
    if (socket.waitForConnected(static_cast<int>(deadline.remainingTime()))) {
      return socket.waitForDisconnected(static_cast<int>(deadline.remainingTime()));
    }
    QThread::msleep(kPauseMilliseconds);
  } while (!deadline.hasExpired());
  return false;
}

}  // namespace orvelle
