// A connection is no more than the path that it is bound to; the way to the ledger is the
// process's, whatever the number of its connections.
#pragma once

#include <array>
#include <string_view>

#include "platform/ledger.h"
#include "platform/ledger/path.h"

namespace ot {

struct ledger_conn {
  std::array<char, ledger_path_max + 1> base{};
  std::size_t length = 0;
};

// The bound path. Exported for the service side.
std::string_view ledger_conn_base(const ledger_conn* connection) noexcept;

// An absolute path made of a connection's and a relative one, without allocating. One that is too
// long is empty, which no operation accepts.
class ledger_full_path {
 public:
  ledger_full_path(const ledger_conn* connection, const char* relative) noexcept;
  [[nodiscard]] std::string_view view() const noexcept { return {text_.data(), length_}; }

 private:
  std::array<char, ledger_path_max + 1> text_;
  std::size_t length_ = 0;
};

}  // namespace ot
