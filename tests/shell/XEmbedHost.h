// A panel that takes the windows of tray icons into its own, as small panels do.
#pragma once

#include <xcb/xcb.h>

#include <QRect>

namespace orvelle {

/// At the right end of the screen's top edge, from construction to destruction; on the screen of
/// DISPLAY. Throws std::runtime_error when there is no X server.
class XEmbedHost {
 public:
  static constexpr int kSize = 24;

  XEmbedHost();
  XEmbedHost(const XEmbedHost&) = delete;
  XEmbedHost& operator=(const XEmbedHost&) = delete;
  ~XEmbedHost();

  /// Takes in what has asked for it; says whether an icon has.
  bool serve();
  /// Of the icon, on the screen.
  [[nodiscard]] QRect place() const { return place_; }

 private:
  [[nodiscard]] xcb_atom_t atom(const char* name) const;
  void announce() const;
  void embed(xcb_window_t icon);

  xcb_connection_t* connection_ = nullptr;
  const xcb_screen_t* screen_ = nullptr;
  xcb_window_t window_ = 0;
  QRect place_;
  bool hasIcon_ = false;
};

}  // namespace orvelle
