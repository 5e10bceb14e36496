// ledger_: reading lists of operational data, a page at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/ledger.h"

namespace ot {

struct ledger_entry {
  std::string name;
  std::uint32_t data_kind = 0;  // 7: an encoded typed record
  std::vector<std::byte> data;  // empty in a list of names
};

// One page and, when there is more, where to go on.
struct ledger_page {
  std::vector<ledger_entry> entries;
  std::size_t next = 0;  // the walk's position
  bool has_continuation = false;
  std::string continuation;  // marker for the next page
};

// Asks the provider of `path` for the names with values after `marker` ("" = from the start), at
// most `page_size` of them. 0, ledger_no_data, ledger_list_end (nothing follows the marker), or
// another status code. `ret` is written on success and freed with ledger_datalist_free. A marker
// whose item has vanished may have nothing behind it too: a reader who was told of a continuation
// and then finds nothing starts over.
int ledger_datalist(ledger_conn* connection, const char* path, const char* marker,
                    std::uint32_t page_size, ledger_page** ret) noexcept;
// The same without values.
int ledger_list(ledger_conn* connection, const char* path, const char* marker,
                std::uint32_t page_size, ledger_page** ret) noexcept;

// The next entry of the page, null after the last one.
const ledger_entry* ledger_datalist_next(ledger_page* page) noexcept;
void ledger_datalist_free(ledger_page* page) noexcept;

}  // namespace ot
