// A stream of the C library that is closed with its owner.
#pragma once

#include <cstdio>
#include <memory>

namespace ot {

struct file_closer {
  void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};

using file_stream = std::unique_ptr<FILE, file_closer>;

}  // namespace ot
