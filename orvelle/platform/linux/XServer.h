// Questions to the X server, over the connection that Qt has to it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

struct xcb_connection_t;

namespace orvelle {

/// Null where the program draws without an X server. Needs a QGuiApplication, whose connection it
/// is. Main thread, as are the others.
xcb_connection_t* xConnection();

std::uint32_t xAtom(xcb_connection_t* connection, const std::string& name);

/// The atom of a selection that each screen has one of, such as "_NET_SYSTEM_TRAY_S" and the number
/// of the screen.
std::uint32_t xScreenSelection(xcb_connection_t* connection, const std::string& prefix);

/// The window that holds the selection; 0 where none does.
std::uint32_t xSelectionOwner(xcb_connection_t* connection, std::uint32_t selection);

/// What the window manager finds when the window is shown.
void addWindowStates(xcb_connection_t* connection, std::uint32_t window,
                     std::initializer_list<const char*> states);

}  // namespace orvelle
