// The trays of Linux desktops.
#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

#include "orvelle/platform/TrayHost.h"
#include "orvelle/platform/linux/XEmbedTray.h"

namespace orvelle {

/// Two kinds: hosts that are told of icons over the message bus (StatusNotifier), and trays that
/// take windows (XEmbed). Qt prefers the former, decides when the first icon is made, and stays
/// with that: from then on only hosts of the same kind count here.
class LinuxTrayHost final : public QObject, public TrayHost {
  Q_OBJECT

 public:
  LinuxTrayHost();

  [[nodiscard]] bool isPresent() const override { return isPresent_; }

 private:
  Q_SLOT void askWatcher();

  enum class Kind { unknown, notifier, xEmbed };

  void update();

  QDBusConnection bus_;
  QDBusServiceWatcher serviceWatcher_;
  bool hasNotifierHost_ = false;
  bool hasAnswer_ = false;
  XEmbedTray xEmbed_;
  Kind kind_ = Kind::unknown;
  bool isPresent_ = false;
};

}  // namespace orvelle
