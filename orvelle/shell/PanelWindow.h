// The window that the panel is in.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QQuickView>
#include <QRect>
#include <optional>

#include "orvelle/AudioController.h"
#include "orvelle/platform/DesktopLook.h"

namespace orvelle {

/// A small window without a frame by the tray icon, which closes as soon as the user turns to
/// something else; or, where there is no tray, a window like any other. Made when it is first
/// opened, then kept. GUI thread.
class PanelWindow final : public QObject {
  Q_OBJECT

 public:
  /// Both outlive the window.
  PanelWindow(AudioController& controller, const DesktopLook& look);
  PanelWindow(const PanelWindow&) = delete;
  PanelWindow& operator=(const PanelWindow&) = delete;
  ~PanelWindow() override;

  /// Opens it by the icon, where the compositor lets a program choose; by the pointer where `icon`
  /// is empty.
  void openByIcon(const QRect& icon);
  /// What a click on the icon does.
  void toggleByIcon(const QRect& icon);
  void openPlain();
  /// Where it is open like any other window and the user is busy elsewhere.
  void closePlainUnlessActive();

  bool eventFilter(QObject* object, QEvent* event) override;

 signals:
  void quitRequested();
  /// The user has closed the window with a frame.
  void plainClosed();
  /// There is no panel on this computer, for `reason`.
  void loadFailed(const QString& reason);

 private:
  Q_SLOT void escape();
  void activeChanged();
  [[nodiscard]] bool isOpen() const { return view_ && view_->isVisible(); }
  bool prepare(bool isPlain);
  void load();
  void present();
  void hide();

  AudioController& controller_;
  const DesktopLook& look_;
  std::optional<QQuickView> view_;
  bool isPlain_ = false;
  bool isTranslucent_ = false;
  QElapsedTimer sinceChange_;  ///< from open to closed, or back
};

}  // namespace orvelle
