// How macOS tells of itself, declared anew.
#pragma once

#include <cstddef>

extern "C" int sysctlbyname(const char* name, void* value, std::size_t* size, void* newValue,
                            std::size_t newSize);
