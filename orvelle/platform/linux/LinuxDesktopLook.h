// The look of Linux desktops.
#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QString>

#include "orvelle/platform/DesktopLook.h"

namespace orvelle {

/// Settings come from the settings portal, in the words of GNOME, of KDE and of all desktops
/// together; without a portal, nothing is reduced. A desktop that prefers dark windows and does not
/// tell Qt, as GNOME, gets a dark palette for the whole application.
class LinuxDesktopLook final : public QObject, public DesktopLook {
  Q_OBJECT

 public:
  LinuxDesktopLook();

  [[nodiscard]] bool wantsReducedMotion() const override;
  [[nodiscard]] bool hasTranslucency() const override;
  [[nodiscard]] bool isPanelDark() const override;
  [[nodiscard]] bool takesWideIcons() const override { return false; }
  /// The libraries of a graphics processor take more memory than everything else here.
  [[nodiscard]] bool paintsOnProcessor() const override { return true; }
  void keepOutOfTaskBar(QWindow& window) const override;

 private:
  Q_SLOT void settingTold(const QDBusMessage& news);
  void settingChanged(const QString& group, const QString& key, const QVariant& value);

  void applyColorScheme() const;

  bool hasAnimations_ = true;     ///< of GNOME
  double animationFactor_ = 1.0;  ///< of KDE: 0 for none
  unsigned reducedMotion_ = 0;    ///< 1 when wanted
  unsigned colorScheme_ = 0;      ///< 1 when dark windows are preferred
};

}  // namespace orvelle
