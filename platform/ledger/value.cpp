// The one place where ledger values are copied.
#include <algorithm>
#include <new>

#include "platform/ledger.h"
#include "platform/status.h"

namespace ot {

int ledger_value_assign(ledger_value& ret, ledger_kind kind,
                        std::span<const std::byte> bytes) noexcept {
  std::unique_ptr<std::byte[]> copy{new (std::nothrow)
                                        std::byte[std::max<std::size_t>(1, bytes.size())]};
  if (!copy) {
    return no_memory;
  }
  std::copy(bytes.begin(), bytes.end(), copy.get());
  ret.kind = kind;
  ret.data = std::move(copy);
  ret.length = bytes.size();
  return status_ok;
}

}  // namespace ot
