#include "orvelle/platform/linux/XServer.h"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <cstdlib>
#include <memory>

namespace orvelle {

namespace {

/// What the server has answered; null where it has not.
template <typename Reply>
std::unique_ptr<Reply, decltype(&std::free)> owned(Reply* reply) {
  return {reply, &std::free};
}

}  // namespace

xcb_connection_t* xConnection() {
  const auto* const application = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return application == nullptr ? nullptr : application->connection();
}

std::uint32_t xAtom(xcb_connection_t* connection, const std::string& name) {
  const auto length = static_cast<std::uint16_t>(name.size());
  const auto cookie = xcb_intern_atom(connection, 0, length, name.c_str());
  const auto reply = owned(xcb_intern_atom_reply(connection, cookie, nullptr));
  return reply ? reply->atom : std::uint32_t{XCB_ATOM_NONE};
}

std::uint32_t xScreenSelection(xcb_connection_t* connection, const std::string& prefix) {
  int screen = 0;
  char* host = nullptr;
  int display = 0;
  if (xcb_parse_display(nullptr, &host, &display, &screen) != 0) {
    std::free(host);  // NOLINT(*-no-malloc): the library's
  }
  return xAtom(connection, prefix + std::to_string(screen));
}

std::uint32_t xSelectionOwner(xcb_connection_t* connection, std::uint32_t selection) {
  const auto cookie = xcb_get_selection_owner(connection, selection);
  const auto reply = owned(xcb_get_selection_owner_reply(connection, cookie, nullptr));
  return reply ? reply->owner : std::uint32_t{XCB_WINDOW_NONE};
}

void addWindowStates(xcb_connection_t* connection, std::uint32_t window,
                     std::initializer_list<const char*> states) {
  constexpr std::uint8_t bits = 32;
  const std::uint32_t property = xAtom(connection, "_NET_WM_STATE");
  for (const char* name : states) {
    const std::uint32_t state = xAtom(connection, name);
    xcb_change_property(connection, XCB_PROP_MODE_APPEND, window, property, XCB_ATOM_ATOM, bits, 1,
                        &state);
  }
}

}  // namespace orvelle
