// How one process tells another what it is to remember.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvelle {

/// Two sockets that are connected with each other, and that no program started later inherits.
/// Absent where the system has none left.
std::optional<std::pair<int, int>> openRecordSockets();

/// Never waits, and raises no signal: what finds no room is lost, and so is what nobody reads any
/// more. `record` contains no byte of value 0.
void sendRecord(int socket, std::string_view record);

/// Sleeps until nobody can send to `socket` any more. Returns the last record that came whole,
/// empty where none did. One that found too little room comes as its beginning: `isWhole` tells by
/// the record itself.
std::string lastRecord(int socket, const std::function<bool(std::string_view record)>& isWhole);

/// What is open as `descriptor` is then open as `number` instead, in the place of what was open
/// there, and is not inherited.
void moveDescriptor(int descriptor, int number);

}  // namespace orvelle
