// Reading for "show track". One track, or the table, is one item; all tracks in detail are read a
// page at a time, so that the service never holds more than a page of them.

#include "show/show.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "core/debug.h"
#include "oper/records/build.h"
#include "oper/records/track_records.h"
#include "platform/err_string.h"
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "platform/process.h"
#include "show/view.h"

namespace ot {
namespace {

constexpr const char* oper_base = "/oper/object_tracking/gl/";
constexpr const char* all_tracks = "all-tracks";

// How often all pages are read when tracks go meanwhile.
constexpr int most_attempts = 20;

bool is(const char* word, const char* text) noexcept {
  return word != nullptr && std::strcmp(word, text) == 0;
}

// A service in the same process has registered them before.
bool records_registered() noexcept {
  const int status = ot_records_register();
  return status == status_ok || status == duplicate_key;
}

// Decodes and prints one encoded record with what is chained to it. The decoding's result.
template <typename Record>
int print_record(const char* who, const brec_descriptor& descriptor, void (*display)(const Record*),
                 std::span<const std::byte> bytes) {
  auto* record = brec_alloc<Record>();
  if (record == nullptr) {
    OT_TRACE_ERROR("(%s): error allocating memory. ", who);
    return no_memory;
  }
  const int status = brec_decode(descriptor, bytes, record);
  if (status == status_ok) {
    display(record);
  }
  brec_free(descriptor, record);
  return status;
}

template <typename Record>
void show_item(const char* who, const char* branch, const char* key,
               const brec_descriptor& descriptor, void (*display)(const Record*)) {
  if (!records_registered()) {
    return;
  }
  char path[128];
  std::snprintf(path, sizeof path, "%s%s", branch, key);
  ledger_value value;
  const int status = ot_ledger_read_oper(oper_base, path, &value);
  if (status == status_ok) {
    print_record(who, descriptor, display, value.bytes());
  } else if (status != ledger_no_data) {
    OT_TRACE_ERROR("(%s): cannot get the track info from server- %s", who, err_string(status));
  }
}

// The client library is a file of its own, which may be missing.
int bind_oper(ledger_conn** ret) noexcept {
  const int status =
      ledger_library_readable() ? ledger_bind(oper_base, ret) : ledger_library_missing;
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ledger_bind failed - %s", "ot_show_all_tracks_info", err_string(status));
  }
  return status;
}

void print_page(ledger_page* page) {
  constexpr auto who = "ot_show_all_tracks_info";
  while (const ledger_entry* entry = ledger_datalist_next(page)) {
    if (entry->data_kind != static_cast<std::uint32_t>(ledger_kind::record) ||
        entry->data.empty()) {
      continue;
    }
    const int status =
        print_record<track_info__>(who, track_info___brec, ot_display_track_info, entry->data);
    if (status != status_ok) {
      OT_TRACE_ERROR("(%s): Failed to decode DPV brec: %s ", who, err_string(status));
    }
  }
}

struct page_deleter {
  void operator()(ledger_page* page) const noexcept { ledger_datalist_free(page); }
};
using page_list = std::vector<std::unique_ptr<ledger_page, page_deleter>>;

// Reads every page. False when nothing followed where more was announced: the track where the page
// would begin is gone, and what was read is a part. May throw bad_alloc.
bool read_pages(ledger_conn* connection, page_list& ret) {
  std::string marker;
  for (;;) {
    ledger_page* page = nullptr;
    const int status =
        ledger_datalist(connection, "track/detail", marker.c_str(), track_page, &page);
    if (status == ledger_list_end || status == ledger_no_data) {
      return ret.empty();
    }
    if (status != status_ok) {
      OT_TRACE_ERROR("%s %d Ledger datalist returned: %s", "ot_show_all_tracks_info", __LINE__,
                     err_string(status));
      return true;
    }
    page_list::value_type held{page};
    ret.push_back(std::move(held));
    if (page->entries.size() != track_page || !page->has_continuation) {
      return true;
    }
    marker = page->continuation;
  }
}

// Pages are printed when all are read, since they may have to be read anew.
void show_pages(ledger_conn* connection) {
  page_list pages;
  try {
    for (int attempt = 1; !read_pages(connection, pages); ++attempt) {
      pages.clear();
      if (attempt == most_attempts) {
        OT_TRACE_ERROR("(%s): the tracks change faster than they can be read",
                       "ot_show_all_tracks_info");
        return;
      }
    }
  } catch (const std::bad_alloc&) {
    OT_TRACE_ERROR("(%s): error allocating memory. ", "ot_show_all_tracks_info");
    return;
  }
  for (const auto& page : pages) {
    print_page(page.get());
  }
}

}  // namespace

int ot_show(int argc, char** argv) {
  OT_TRACE_DETAIL("(%s)", __func__);
  const char* words[5] = {};
  for (int index = 0; index < argc && index < 5; ++index) {
    words[index] = argv[index];
  }
  if (is(words[2], "track")) {
    ot_show_track(words);
  }
  return 0;
}

void ot_show_track(const char* const* argv) {
  const auto word = [argv](int index) { return argv[index] == nullptr ? "" : argv[index]; };
  OT_TRACE_DETAIL("(%s) : %s ,%s, %s, %s, %s", __func__, word(0), word(1), word(2), word(3),
                  word(4));
  const char* name = argv[3] == nullptr ? all_tracks : argv[3];
  if (!is(argv[4], "all")) {
    ot_show_track_info_brief(name);
  } else if (is(name, all_tracks)) {
    ot_show_all_tracks_info();
  } else {
    ot_show_track_info(name);
  }
}

void ot_show_track_info(const char* name) {
  show_item<track_info__>(__func__, "track/detail/", name, track_info___brec,
                          ot_display_track_info);
}

void ot_show_track_info_brief(const char* key) {
  show_item<track_info_brief__>(__func__, "track/brief/", key, track_info_brief___brec,
                                ot_display_track_info_brief);
}

void ot_show_all_tracks_info() {
  ledger_conn* connection = nullptr;
  if (!records_registered() || bind_oper(&connection) != status_ok) {
    return;
  }
  show_pages(connection);
  ledger_unbind(connection);
}

int ot_ledger_read_oper(const char* base, const char* path, ledger_value* ret) noexcept {
  ledger_conn* connection = ledger_get_default_conn();
  if (connection == nullptr) {
    return ledger_unreachable;
  }
  char whole[256];
  std::snprintf(whole, sizeof whole, "%.127s%.127s", base, path);
  // The default connection is bound to the root, which is not repeated in the item's path.
  return ledger_item_get(connection, whole[0] == '/' ? whole + 1 : whole, ret);
}

}  // namespace ot
