// One step of the start: what it is, for the message when it fails, how it is done and undone. The
// stop is the table of steps run backwards, so an undo does nothing when its step was not done.
#pragma once

#include <cstdint>

namespace ot {

struct evm;

struct start_context {
  evm* manager;               // the main loop
  std::uint32_t start_count;  // of this boot, from 1
};

struct start_step {
  const char* what;
  int (*run)(const start_context& context);  // a status code
  void (*undo)() noexcept = nullptr;         // null: nothing to undo
};

}  // namespace ot
