// Thread names are the kernel's: what `ps -L` and the journal show.
#include "platform/thread_name.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/fixed_text.h"

namespace ot {
namespace {

using kernel_name = fixed_text<16>;

// The name of the thread that the process was started with.
kernel_name process_name() noexcept {
  char text[kernel_name::capacity + 1] = "";
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/task/%d/comm", static_cast<int>(getpid()));
  if (FILE* file = std::fopen(path, "re")) {
    if (std::fgets(text, sizeof text, file) == nullptr) {
      text[0] = '\0';
    }
    std::fclose(file);
  }
  text[std::strcspn(text, "\n")] = '\0';
  return kernel_name{text};
}

}  // namespace

void thread_name_set(const char* name) noexcept {
  const kernel_name wanted = *name == '\0' ? process_name() : kernel_name{name};
  pthread_setname_np(pthread_self(), wanted.c_str());
}

}  // namespace ot
