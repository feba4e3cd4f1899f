#include "orvelle/platform/linux/XEmbedTray.h"

#include <xcb/xcb.h>

#include <QCoreApplication>
#include <utility>

#include "orvelle/platform/linux/XServer.h"

namespace orvelle {

XEmbedTray::XEmbedTray(std::function<void()> onChange)
    : onChange_(std::move(onChange)), connection_(xConnection()) {
  if (connection_ == nullptr) {
    return;
  }
  managerAtom_ = xAtom(connection_, "MANAGER");
  selection_ = xScreenSelection(connection_, "_NET_SYSTEM_TRAY_S");
  QCoreApplication::instance()->installNativeEventFilter(this);
  lookForTray();
}

XEmbedTray::~XEmbedTray() {
  if (connection_ != nullptr) {
    QCoreApplication::instance()->removeNativeEventFilter(this);
  }
}

void XEmbedTray::lookForTray() {
  std::uint32_t tray = XCB_WINDOW_NONE;
  std::uint32_t owner = xSelectionOwner(connection_, selection_);
  // One that ended before its end would have been told is no owner at the second look.
  while (owner != tray) {
    tray = owner;
    if (tray != XCB_WINDOW_NONE) {
      const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
      xcb_change_window_attributes(connection_, tray, XCB_CW_EVENT_MASK, &events);
    }
    owner = xSelectionOwner(connection_, selection_);
  }
  if (std::exchange(tray_, tray) != tray) {
    onChange_();
  }
}

/// A new tray says so to all who listen to the root window, as Qt does; one that ends takes its
/// window with it.
bool XEmbedTray::nativeEventFilter(const QByteArray& eventType, void* message,
                                   qintptr* /*result*/) {
  if (eventType != "xcb_generic_event_t") {
    return false;
  }
  constexpr unsigned typeMask = 0x7F;  // without the mark of events that clients send
  const auto* const event = static_cast<const xcb_generic_event_t*>(message);
  const unsigned type = event->response_type & typeMask;
  if (type == XCB_CLIENT_MESSAGE) {
    const auto* const said = static_cast<const xcb_client_message_event_t*>(message);
    if (said->type == managerAtom_ && said->data.data32[1] == selection_) {
      lookForTray();
    }
  } else if (type == XCB_DESTROY_NOTIFY) {
    const auto* const gone = static_cast<const xcb_destroy_notify_event_t*>(message);
    if (gone->window == tray_) {
      lookForTray();
    }
  }
  return false;
}

}  // namespace orvelle
