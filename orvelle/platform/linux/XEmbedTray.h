// The older of the two ways in which Linux desktops show tray icons: windows inside their panel.
#pragma once

#include <QAbstractNativeEventFilter>
#include <cstdint>
#include <functional>

struct xcb_connection_t;

namespace orvelle {

/// Watches the selection that a tray holds while it lives. Main thread.
class XEmbedTray final : public QAbstractNativeEventFilter {
 public:
  /// `onChange` is called when a tray has come or gone.
  explicit XEmbedTray(std::function<void()> onChange);
  XEmbedTray(const XEmbedTray&) = delete;
  XEmbedTray& operator=(const XEmbedTray&) = delete;
  ~XEmbedTray() override;

  /// Never where the program draws without an X server.
  [[nodiscard]] bool isPresent() const { return tray_ != 0; }

  bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

 private:
  void lookForTray();

  const std::function<void()> onChange_;
  xcb_connection_t* connection_ = nullptr;
  std::uint32_t managerAtom_ = 0;
  std::uint32_t selection_ = 0;
  std::uint32_t tray_ = 0;  ///< the tray's window
};

}  // namespace orvelle
