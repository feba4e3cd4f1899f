#include "tests/shell/NotifierHost.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>

#include "instruments/Subprocess.h"

namespace orvelle {

namespace {

constexpr const char* kHostConnection = "tray host";
constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
constexpr const char* kItem = "org.kde.StatusNotifierItem";
constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr int kPatienceMilliseconds = 500;
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

}  // namespace

NotifierHost::NotifierHost(const QString& busAddress)
    : bus_(QDBusConnection::connectToBus(busAddress, kHostConnection)) {
  bus_.registerVirtualObject("/StatusNotifierWatcher", this);
  bus_.registerService(kWatcher);
}

NotifierHost::~NotifierHost() {
  QDBusConnection::disconnectFromBus(kHostConnection);
}

QString NotifierHost::introspect(const QString& /*path*/) const {
  return "<interface name=\"org.kde.StatusNotifierWatcher\">"
         "<property name=\"IsStatusNotifierHostRegistered\" type=\"b\" access=\"read\"/>"
         "</interface>";
}

bool NotifierHost::handleMessage(const QDBusMessage& message, const QDBusConnection& /*bus*/) {
  if (message.member() == "RegisterStatusNotifierItem") {
    iconNs_ = instruments::monotonicNanoseconds();
    item_ = message.service();
    bus_.send(message.createReply());
    return true;
  }
  if (message.interface() == kProperties &&
      message.arguments().last() == "IsStatusNotifierHostRegistered") {
    bus_.send(message.createReply(QVariant::fromValue(QDBusVariant(true))));
    return true;
  }
  return false;
}

NotifierHost::Shade NotifierHost::shade() const {
  QDBusMessage question = QDBusMessage::createMethodCall(item_, kItemPath, kProperties, "Get");
  question << kItem << "IconPixmap";
  const QDBusReply<QDBusVariant> reply =
      bus_.call(question, QDBus::BlockWithGui, kPatienceMilliseconds);
  const auto pictures = reply.value().variant().value<QDBusArgument>();
  Shade shade;
  for (pictures.beginArray(); !pictures.atEnd();) {
    int width = 0;
    int height = 0;
    QByteArray pixels;  // opacity, red, green, blue; the icon is grey
    pictures.beginStructure();
    pictures >> width >> height >> pixels;
    pictures.endStructure();
    for (qsizetype i = 0; i < pixels.size(); i += 4) {
      const auto opacity = static_cast<unsigned char>(pixels[i]);
      if (opacity > shade.opacity) {
        shade = {opacity, static_cast<unsigned char>(pixels[i + 1])};
      }
    }
  }
  return shade;
}

void NotifierHost::click() const {
  QDBusMessage call = QDBusMessage::createMethodCall(item_, kItemPath, kItem, "Activate");
  call << 0 << 0;
  bus_.send(call);
}

}  // namespace orvelle
