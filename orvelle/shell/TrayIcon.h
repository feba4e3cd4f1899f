// The icon in the desktop's panel.
#pragma once

#include <QObject>
#include <QRect>
#include <QSystemTrayIcon>
#include <optional>

#include "orvelle/AudioController.h"
#include "orvelle/platform/DesktopLook.h"
#include "orvelle/platform/TrayHost.h"

namespace orvelle {

/// Is there whenever a host for it is, however often that one comes and goes, and shows whether the
/// boost is on or ready. GUI thread.
class TrayIcon final : public QObject {
  Q_OBJECT

 public:
  /// All three outlive the icon, which takes `host.onChange`.
  TrayIcon(TrayHost& host, const DesktopLook& look, const AudioController& controller);
  TrayIcon(const TrayIcon&) = delete;
  TrayIcon& operator=(const TrayIcon&) = delete;
  ~TrayIcon() override;

  [[nodiscard]] bool isShown() const { return icon_.has_value(); }
  /// Where it is on the screen; empty where the host does not tell.
  [[nodiscard]] QRect geometry() const;

  bool eventFilter(QObject* object, QEvent* event) override;

 signals:
  /// Its host has come, or gone.
  void isShownChanged();
  void clicked();

 private:
  void followHost();
  void draw();

  TrayHost& host_;
  const DesktopLook& look_;
  const AudioController& controller_;
  std::optional<QSystemTrayIcon> icon_;
};

}  // namespace orvelle
