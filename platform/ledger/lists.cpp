// Building a data provider's answer to a list request. The service builds, so its lack of memory is
// its own: every function reports it and leaves the list as it was.
#include "platform/ledger/lists.h"

#include <new>

#include "platform/status.h"

namespace ot {
namespace {

int add_entry(ledger_dpv_entries* list, const char* name, std::uint32_t data_kind,
              std::span<const std::byte> data) noexcept {
  if (list == nullptr || name == nullptr) {
    return invalid_argument;
  }
  try {
    list->entries.push_back(
        {.name = name, .data_kind = data_kind, .data = {data.begin(), data.end()}});
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  return status_ok;
}

int set_more_flag(ledger_dpv_entries* list) noexcept {
  if (list == nullptr) {
    return invalid_argument;
  }
  list->more = true;
  return status_ok;
}

}  // namespace

ledger_dpv_list* ledger_dpv_list_create() noexcept {
  return new (std::nothrow) ledger_dpv_list;
}

int ledger_dpv_list_add(ledger_dpv_list* list, const char* name, std::uint32_t data_kind,
                        std::uint32_t /*flags*/) noexcept {
  return add_entry(list, name, data_kind, {});
}

int ledger_dpv_list_set_more_flag(ledger_dpv_list* list) noexcept {
  return set_more_flag(list);
}

void ledger_dpv_list_free(ledger_dpv_list* list) noexcept {
  delete list;
}

ledger_dpv_datalist* ledger_dpv_datalist_create() noexcept {
  return new (std::nothrow) ledger_dpv_datalist;
}

int ledger_dpv_datalist_add(ledger_dpv_datalist* list, const char* name, std::uint32_t data_kind,
                            std::uint32_t /*flags*/, const std::byte* data,
                            std::size_t length) noexcept {
  return add_entry(list, name, data_kind, {data, length});
}

int ledger_dpv_datalist_set_more_flag(ledger_dpv_datalist* list) noexcept {
  return set_more_flag(list);
}

void ledger_dpv_datalist_free(ledger_dpv_datalist* list) noexcept {
  delete list;
}

}  // namespace ot
