// Processes as the operating system knows them.
#pragma once

#include <cstdint>
#include <optional>

namespace orvelle {

/// The process id that the system knows this process by.
int currentProcessID();

/// When a process began, in the system's own unit: tells a process from a later one of the same id.
/// Absent for a process that is dead, and where the system does not tell.
std::optional<std::uint64_t> processStartTime(std::int32_t pid);

}  // namespace orvelle
