#include "platform/ledger/engine/handling.h"

#include "platform/ledger/engine/engine.h"
#include "platform/ledger/engine/tree.h"
#include "platform/ledger/item.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

const ledger_change* under_way = nullptr;

const char* kind_text(ledger_kind kind) noexcept {
  switch (kind) {
    case ledger_kind::u32:
      return "it is a number";
    case ledger_kind::text:
      return "it is a text";
    case ledger_kind::tuple:
      return "it is a tuple";
    case ledger_kind::record:
      break;
  }
  return "it is a record";
}

std::string length_fault(ledger_kind kind, std::size_t bytes, std::uint32_t length) {
  if (length == 0) {
    return {};
  }
  if (kind == ledger_kind::text && bytes > length) {
    return "the text has " + std::to_string(bytes) + " characters, at most " +
           std::to_string(length) + " are taken";
  }
  if (kind == ledger_kind::tuple && bytes != std::size_t{length} * sizeof(std::uint32_t)) {
    return "the tuple has " + std::to_string(bytes / sizeof(std::uint32_t)) + " numbers, not " +
           std::to_string(length);
  }
  return {};
}

}  // namespace

bool ledger_row_is_handled(const ledger_registration& row) noexcept {
  return (row.flags & ledger_row_handled) != 0;
}

bool ledger_row_is_available(const ledger_registration& row) noexcept {
  return !ledger_row_is_handled(row) || (row.verify != nullptr && row.apply != nullptr);
}

std::string ledger_row_value_fault(const ledger_registration& row, ledger_kind kind,
                                   std::span<const std::byte> value) {
  const ledger_kind wanted = ledger_row_kind(row);
  if (kind != wanted) {
    return kind_text(wanted);
  }
  const char* fault = ledger_value_fault(wanted, value);
  return fault != nullptr ? fault : length_fault(kind, value.size(), row.length);
}

int ledger_row_apply(ledger_environment& environment, const ledger_registration& row,
                     const ledger_change& change) {
  if (!ledger_row_is_handled(row)) {
    return status_ok;
  }
  if (!ledger_row_is_available(row)) {
    return ledger_not_available;
  }
  const ledger_while_set applying{under_way, &change};
  return ledger_in_service(environment, [&] { return row.apply(change); });
}

const ledger_change* ledger_change_under_way() noexcept {
  return under_way;
}

}  // namespace ot
