// How what an instance of the service leaves in FRR is known again as its own by its next run.
#pragma once

#include <cstdint>

#include "platform/common/root_path.h"
#include "platform/text_hash.h"

namespace ot::bfd {

// The same for every run of one instance, and only for those: the instance is known by its root
// directory. Throws bad_alloc.
inline std::uint32_t instance_number() {
  return text_hash(root_path("/"));
}

}  // namespace ot::bfd
