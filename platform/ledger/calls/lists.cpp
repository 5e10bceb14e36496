// Pages of operational data. A provider or the size of a message may cut an answer short of the
// page that was asked for; the page is filled here, so its length says what a reader takes it to
// say. The item behind which a page would go on may vanish meanwhile: then there is nothing behind
// it, and the page is asked for anew, since it would look like the last one.
#include <algorithm>
#include <iterator>
#include <memory>
#include <new>

#include "platform/ledger/calls/call.h"
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr int most_attempts = 20;

bool nothing_follows(int status) noexcept {
  return status == ledger_no_data || status == ledger_list_end;
}

// One attempt. ledger_list_end with entries in the page: what was to follow them has vanished.
int fill_page(ledger_list_query query, ledger_page& page) {
  const std::uint32_t wanted = query.page_size;
  page.continuation = query.marker;
  do {
    const std::string marker = std::move(page.continuation);
    query.marker = marker;
    query.page_size = wanted - static_cast<std::uint32_t>(page.entries.size());
    ledger_page part;
    const int status =
        ledger_call([&](ledger_backend& backend) { return backend.list(query, part); });
    if (status != status_ok) {
      return nothing_follows(status) && !page.entries.empty() ? ledger_list_end : status;
    }
    page.has_continuation = part.has_continuation;
    page.continuation = std::move(part.continuation);
    std::move(part.entries.begin(), part.entries.end(), std::back_inserter(page.entries));
  } while (page.has_continuation && page.entries.size() < wanted);
  return status_ok;
}

int fill_whole_page(const ledger_list_query& query, ledger_page& page) {
  for (int attempt = 0; attempt < most_attempts; ++attempt) {
    page = {};
    const int status = fill_page(query, page);
    if (status != ledger_list_end || page.entries.empty()) {
      return status;
    }
  }
  return ledger_not_available;
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
    const int status = fill_whole_page(query, *page);
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
