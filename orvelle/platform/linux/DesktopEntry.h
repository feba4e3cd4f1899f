// The format of desktop entries: of menus, and of what is started at login.
#pragma once

#include <functional>
#include <istream>
#include <string>
#include <string_view>

namespace orvelle {

/// Calls `visit` with every key and value of the entry itself, in order and as they stand in the
/// file. Later groups hold actions such as "New Window", with keys of their own, and are left out.
void visitDesktopEntry(
    std::istream& file,
    const std::function<void(std::string_view key, std::string_view value)>& visit);

/// The value of a text key, without the escapes of the format.
std::string unescapedValue(std::string_view value);

/// An argument as the key Exec has it: quoted, and with the escapes of the format.
std::string execArgument(std::string_view argument);

/// The program that a value of the key Exec starts; empty when it names none.
std::string execProgram(std::string_view value);

}  // namespace orvelle
