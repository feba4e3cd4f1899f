// What this program asks macOS about processes, declared anew.
#pragma once

#include <cstdint>

extern "C" {

struct proc_bsdinfo {
  std::uint32_t pbi_flags;
  std::uint32_t pbi_status;
  std::uint64_t pbi_start_tvsec;
  std::uint64_t pbi_start_tvusec;
};

enum { PROC_PIDTBSDINFO = 3 };

int proc_pidinfo(int pid, int flavor, std::uint64_t arg, void* buffer, int buffersize);

}  // extern "C"
