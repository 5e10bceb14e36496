// What a phase of work took and rest does not need. A start and a change of the whole configuration
// run much code, and take much memory, that is not wanted again for a long time.
#pragma once

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "platform/linux/file_stream.h"

namespace ot {

// Takes an object's pages of code and constants out of the process. They are as in its file and
// stay in the page cache: what is run again is mapped again, sixteen pages in about a microsecond.
// What can have been written to is left.
inline int unmap_code(dl_phdr_info* object, std::size_t /*size*/, void* /*context*/) noexcept {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  for (std::size_t index = 0; index < object->dlpi_phnum; ++index) {
    const auto& segment = object->dlpi_phdr[index];
    if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
      const std::uintptr_t first = object->dlpi_addr + segment.p_vaddr;
      const std::uintptr_t begin = first & ~(page - 1);
      const std::uintptr_t end = (first + segment.p_memsz) & ~(page - 1);
      syscall(SYS_madvise, begin, end - begin, MADV_DONTNEED);  // the loader tells numbers
    }
  }
  return 0;
}

// A debugger's breakpoints are in the pages of code.
inline bool is_traced() noexcept {
  const file_stream status{std::fopen("/proc/self/status", "re")};
  char line[128];
  int tracer = 0;
  while (status != nullptr && std::fgets(line, sizeof line, status.get()) != nullptr &&
         std::sscanf(line, "TracerPid: %d", &tracer) != 1) {
  }
  return tracer != 0;
}

// Gives freed memory back to the system, and lets go of code and constants until they are used
// again. From any thread; the others go on. For ends of long work: the next that is done pays for
// it, some 20 us.
inline void give_memory_back() noexcept {
  malloc_trim(0);
  if (!is_traced()) {
    dl_iterate_phdr(unmap_code, nullptr);
  }
}

}  // namespace ot
