#include "tests/shell/XEmbedHost.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace orvelle {

XEmbedHost::XEmbedHost() : connection_(xcb_connect(nullptr, nullptr)) {
  if (xcb_connection_has_error(connection_) != 0) {
    throw std::runtime_error("no X server");
  }
  screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
  place_ = QRect(screen_->width_in_pixels - kSize, 0, kSize, kSize);
  window_ = xcb_generate_id(connection_);
  const std::uint32_t unmanaged = 1;
  xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen_->root,
                    static_cast<std::int16_t>(place_.x()), 0, kSize, kSize, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual, XCB_CW_OVERRIDE_REDIRECT,
                    &unmanaged);
  xcb_map_window(connection_, window_);
  xcb_set_selection_owner(connection_, window_, atom("_NET_SYSTEM_TRAY_S0"), XCB_CURRENT_TIME);
  announce();
}

XEmbedHost::~XEmbedHost() {
  xcb_disconnect(connection_);
}

xcb_atom_t XEmbedHost::atom(const char* name) const {
  const auto cookie =
      xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
  const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
      xcb_intern_atom_reply(connection_, cookie, nullptr), &std::free);
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

void XEmbedHost::announce() const {
  xcb_client_message_event_t event{};
  event.response_type = XCB_CLIENT_MESSAGE;
  event.format = 32;
  event.window = screen_->root;
  event.type = atom("MANAGER");
  event.data.data32[0] = XCB_CURRENT_TIME;
  event.data.data32[1] = atom("_NET_SYSTEM_TRAY_S0");
  event.data.data32[2] = window_;
  xcb_send_event(connection_, 0, screen_->root, XCB_EVENT_MASK_STRUCTURE_NOTIFY,
                 reinterpret_cast<const char*>(&event));
  xcb_flush(connection_);
}

bool XEmbedHost::serve() {
  constexpr std::uint32_t dock = 0;
  const xcb_atom_t request = atom("_NET_SYSTEM_TRAY_OPCODE");
  while (xcb_generic_event_t* const event = xcb_poll_for_event(connection_)) {
    const auto* const message = reinterpret_cast<const xcb_client_message_event_t*>(event);
    if ((event->response_type & 0x7F) == XCB_CLIENT_MESSAGE && message->type == request &&
        message->data.data32[1] == dock) {
      embed(message->data.data32[2]);
    }
    std::free(event);
  }
  return hasIcon_;
}

void XEmbedHost::embed(xcb_window_t icon) {
  xcb_reparent_window(connection_, icon, window_, 0, 0);
  xcb_map_window(connection_, icon);
  xcb_flush(connection_);
  hasIcon_ = true;
}

}  // namespace orvelle
