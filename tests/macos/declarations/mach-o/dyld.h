// Where macOS tells a program its own file, declared anew.
#pragma once

#include <cstdint>

extern "C" int _NSGetExecutablePath(char* buffer, std::uint32_t* bufsize);
