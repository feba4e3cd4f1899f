// Where a desktop tells programs how it looks.
#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariant>
#include <vector>

namespace orvelle {

/// From construction to destruction. Needs the event loop.
class SettingsPortal final : public QDBusVirtualObject {
  Q_OBJECT

 public:
  struct Setting {
    QString group;
    QString key;
    QVariant value;
  };

  SettingsPortal(const QString& busAddress, std::vector<Setting> settings);
  SettingsPortal(const SettingsPortal&) = delete;
  SettingsPortal& operator=(const SettingsPortal&) = delete;
  ~SettingsPortal() override;

  /// Tells everybody.
  void change(const Setting& setting);

  QString introspect(const QString& path) const override;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

 private:
  QDBusConnection bus_;
  std::vector<Setting> settings_;
};

}  // namespace orvelle
