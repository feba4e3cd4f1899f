// A desktop's panel that shows tray icons over the message bus, as the larger desktops do.
#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QString>

namespace orvelle {

/// Watcher and host in one, from construction to destruction. Needs the event loop.
class NotifierHost final : public QDBusVirtualObject {
  Q_OBJECT

 public:
  explicit NotifierHost(const QString& busAddress);
  NotifierHost(const NotifierHost&) = delete;
  NotifierHost& operator=(const NotifierHost&) = delete;
  ~NotifierHost() override;

  [[nodiscard]] bool hasIcon() const { return !item_.isEmpty(); }
  /// When the icon came, CLOCK_MONOTONIC.
  [[nodiscard]] std::int64_t iconNs() const { return iconNs_; }
  /// Of the icon where it is most opaque, both 0 to 255; -1 as long as it does not answer.
  struct Shade {
    int opacity = -1;
    int brightness = -1;
  };
  [[nodiscard]] Shade shade() const;
  /// The icon is told of a click.
  void click() const;

  QString introspect(const QString& path) const override;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

 private:
  QDBusConnection bus_;
  QString item_;  ///< the icon's name on the bus
  std::int64_t iconNs_ = 0;
};

}  // namespace orvelle
