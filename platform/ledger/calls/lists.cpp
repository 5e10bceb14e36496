// Pages of operational data. A provider or the size of a message may cut an answer short of the
// page that was asked for; the page is filled here, so its length says what a reader takes it to
// say.
#include <algorithm>
#include <iterator>
#include <memory>
#include <new>

#include "platform/ledger/calls/call.h"
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

int fill_page(ledger_list_query query, ledger_page& page) {
  const std::uint32_t wanted = query.page_size;
  page.continuation = query.marker;
  for (;;) {
    const std::string marker = std::move(page.continuation);
    query.marker = marker;
    query.page_size = wanted - static_cast<std::uint32_t>(page.entries.size());
    ledger_page part;
    const int status =
        ledger_call([&](ledger_backend& backend) { return backend.list(query, part); });
    if (status != status_ok && page.entries.empty()) {
      return status;
    }
    page.has_continuation = status == status_ok && part.has_continuation;
    page.continuation = std::move(part.continuation);
    std::move(part.entries.begin(), part.entries.end(), std::back_inserter(page.entries));
    const bool ended = status == ledger_no_data || status == ledger_list_end;
    if (status != status_ok && !ended) {
      return status;
    }
    if (!page.has_continuation || page.entries.size() >= wanted) {
      return status_ok;
    }
  }
}

int request_page(ledger_conn* connection, const char* path, const char* marker,
                 std::uint32_t page_size, bool values, ledger_page** ret) noexcept {
  const ledger_full_path full{connection, path};
  try {
    auto page = std::make_unique<ledger_page>();
    const ledger_list_query query{.path = full.view(),
                                  .marker = marker == nullptr ? "" : marker,
                                  .page_size = page_size,
                                  .values = values};
    const int status = fill_page(query, *page);
    if (status == status_ok) {
      *ret = page.release();
    }
    return status;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
}

}  // namespace

int ledger_datalist(ledger_conn* connection, const char* path, const char* marker,
                    std::uint32_t page_size, ledger_page** ret) noexcept {
  return request_page(connection, path, marker, page_size, true, ret);
}

int ledger_list(ledger_conn* connection, const char* path, const char* marker,
                std::uint32_t page_size, ledger_page** ret) noexcept {
  return request_page(connection, path, marker, page_size, false, ret);
}

const ledger_entry* ledger_datalist_next(ledger_page* page) noexcept {
  return page == nullptr || page->next >= page->entries.size() ? nullptr
                                                               : &page->entries[page->next++];
}

void ledger_datalist_free(ledger_page* page) noexcept {
  delete page;
}

}  // namespace ot
