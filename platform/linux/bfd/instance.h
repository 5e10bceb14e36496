// How what an instance of the service leaves in FRR is known again as its own by its next run.
#pragma once

#include <cstdint>

#include "platform/common/root_path.h"

namespace ot::bfd {

// The same for every run of one instance, and only for those: the instance is known by its root
// directory. Throws bad_alloc.
inline std::uint32_t instance_number() {
  std::uint32_t hash = 2166136261U;  // FNV-1a
  for (const char letter : root_path("/")) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  return hash;
}

}  // namespace ot::bfd
