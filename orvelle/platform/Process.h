// Processes as the operating system knows them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

/// The process id that the system knows this process by.
int currentProcessID();

/// Whether whoever started this process wants it to go on at `signal`, as "nohup" does.
bool ignoresSignal(int signal);

/// When a process began, in the system's own unit: tells a process from a later one of the same id.
/// Absent for a process that is dead, and where the system does not tell.
std::optional<std::uint64_t> processStartTime(std::int32_t pid);

/// The file that this process runs, without links; empty where the system does not tell.
std::filesystem::path ownProgram();

/// The file of a program that belongs to this one: beside it, as a build and a bundle leave them,
/// or in the folders bin and libexec of the same installation. Names the place beside this one
/// where it is nowhere.
std::filesystem::path packageProgram(std::string_view name);

/// The folder of this user for what a program remembers beside settings; empty where there is none.
std::filesystem::path stateFolder();

/// Turns this process into `program`, without arguments. Returns only where that fails: the reason.
std::string becomeProgram(const std::filesystem::path& program);

/// Asks for the processor before the programs of other people. Without the right to it, this
/// process waits like everybody. Threads that are made afterwards inherit it, except on macOS.
void goBeforeOthers();

}  // namespace orvelle
