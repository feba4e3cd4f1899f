// The look of Linux desktops.
#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QString>

#include "orvelle/platform/DesktopLook.h"

namespace orvelle {

/// Settings from the settings portal, which every larger desktop serves; without one, nothing is
/// reduced.
class LinuxDesktopLook final : public QObject, public DesktopLook {
  Q_OBJECT

 public:
  LinuxDesktopLook();

  [[nodiscard]] bool wantsReducedMotion() const override { return !hasAnimations_; }
  [[nodiscard]] bool hasTranslucency() const override;
  [[nodiscard]] bool isPanelDark() const override;
  void keepOutOfTaskBar(QWindow& window) const override;

 private:
  Q_SLOT void settingChanged(const QString& group, const QString& key, const QDBusVariant& value);

  bool hasAnimations_ = true;
};

}  // namespace orvelle
