// Serving the records. The two branches are the same but for the kind of record, the key
// "all-tracks", which only the brief one knows, and the pages, which only the detailed one has.

#include "oper/records/provider.h"

#include <string_view>

#include "core/debug.h"
#include "core/track_kind.h"
#include "oper/records/build.h"
#include "platform/err_string.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr std::uint32_t record_kind = static_cast<std::uint32_t>(ledger_kind::record);

struct detail_branch {
  using record = track_info__;
  static constexpr const brec_descriptor& descriptor = track_info___brec;
  static constexpr auto by_name = ot_get_track_by_name;
  static constexpr auto by_type = ot_get_tracks_by_type;
  static record* page(const char* marker, std::uint32_t* ret_more) {
    return ot_get_tracks(marker, ret_more);
  }
  // Here "all-tracks" is the name of a track like any other.
  static record* special(std::string_view /*key*/) { return nullptr; }
};

struct brief_branch {
  using record = track_info_brief__;
  static constexpr const brec_descriptor& descriptor = track_info_brief___brec;
  static constexpr auto by_name = ot_get_track_by_name_brief;
  static constexpr auto by_type = ot_get_tracks_by_type_brief;
  static record* page(const char* /*marker*/, std::uint32_t* ret_more) {
    *ret_more = 0;
    return ot_get_tracks_brief();
  }
  static record* special(std::string_view key) {
    return key == "all-tracks" ? ot_get_tracks_brief() : nullptr;
  }
};

template <typename Branch>
typename Branch::record* records_of(const char* key) {
  for (const track_kind* kind : track_kinds()) {
    if (kind->record_key != nullptr && std::string_view{kind->record_key} == key) {
      return Branch::by_type(kind->types.front().type);
    }
  }
  typename Branch::record* records = Branch::special(key);
  return records != nullptr ? records : Branch::by_name(key);
}

}  // namespace

int ot_dpv_encoded(const char* who, int status, ledger_dpv_reply& reply) noexcept {
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : Brec encode failed (%s)", who, err_string(status));
    return ledger_no_data;
  }
  reply.data_kind = record_kind;
  return status_ok;
}

namespace {

template <typename Branch>
int get(const char* who, ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  const char* key = request->key == nullptr ? "" : request->key;
  OT_TRACE_DETAIL("(%s) :track = %s", who, key);
  typename Branch::record* records = records_of<Branch>(key);
  std::byte* buffer = nullptr;
  std::size_t length = 0;
  int status = status_ok;
  if (records != nullptr) {
    status = brec_encode(Branch::descriptor, records, &buffer, &length);
    if (status != status_ok) {
      delete[] buffer;
      buffer = nullptr;
      length = 0;
      OT_TRACE_ERROR("(%s) : Brec encode failed (%s)", who, err_string(status));
    }
  }
  reply->data_kind = record_kind;
  reply->buffer = buffer;
  reply->length = length;
  ot_free_tracks(records);
  return length > 0 ? status : ledger_no_data;
}

void mark_more(const char* who, ledger_dpv_list* list, ledger_dpv_datalist* datalist) noexcept {
  const int status = list != nullptr ? ledger_dpv_list_set_more_flag(list)
                                     : ledger_dpv_datalist_set_more_flag(datalist);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : ledger_dpv_datalist_set_more_flag fail", who);
  }
}

template <typename Branch>
int list_datalist(const char* who, ledger_dpv_list_request* list,
                  ledger_dpv_datalist_request* datalist) {
  OT_TRACE_DETAIL("Entering (%s) : ", who);
  const char* marker = list != nullptr ? list->marker : datalist != nullptr ? datalist->marker : "";
  std::uint32_t more = 0;
  typename Branch::record* records = Branch::page(marker == nullptr ? "" : marker, &more);
  if (records == nullptr) {
    return ledger_no_data;
  }
  ledger_dpv_list* list_handle = nullptr;
  ledger_dpv_datalist* datalist_handle = nullptr;
  int status = ot_init_list_datalist(list, datalist, &list_handle, &datalist_handle);
  std::uint32_t count = 0;
  for (auto* record = records; record != nullptr && status == status_ok; record = record->next) {
    auto* const next = record->next;
    record->next = nullptr;  // an item is this one record
    char error_text[256] = "";
    status = ot_add_list_datalist(list, datalist, list_handle, datalist_handle,
                                  built_record_name(*record).c_str(), record, Branch::descriptor,
                                  error_text, sizeof error_text);
    record->next = next;
    if (status == status_ok) {
      ++count;
    } else {
      OT_TRACE_ERROR("(%s) : %s", who, error_text);
    }
  }
  if (status == status_ok && more != 0) {
    mark_more(who, list_handle, datalist_handle);
  }
  ot_release_list_datalist(list, datalist, list_handle, datalist_handle, count, status);
  ot_free_tracks(records);
  return status;
}

// The detailed branch, then the brief one.
constexpr ledger_dpv_provider providers[] = {
    {"track/detail", ot_dpv_track_get, ot_track_list, ot_track_datalist},
    {"track/brief", ot_dpv_track_get_brief, ot_track_brief_list, ot_track_brief_datalist, true},
};

}  // namespace

int ot_oper_provider_register() noexcept {
  return ledger_dpv_register("/oper/object_tracking/gl/", providers);
}

int ot_dpv_track_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  return get<detail_branch>(__func__, reply, request);
}
int ot_dpv_track_get_brief(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  return get<brief_branch>(__func__, reply, request);
}

int ot_track_list(ledger_dpv_list_request* request) {
  return ot_track_list_datalist(request, nullptr);
}
int ot_track_datalist(ledger_dpv_datalist_request* request) {
  return ot_track_list_datalist(nullptr, request);
}
int ot_track_brief_list(ledger_dpv_list_request* request) {
  return ot_track_brief_list_datalist(request, nullptr);
}
int ot_track_brief_datalist(ledger_dpv_datalist_request* request) {
  return ot_track_brief_list_datalist(nullptr, request);
}

int ot_track_list_datalist(ledger_dpv_list_request* list, ledger_dpv_datalist_request* datalist) {
  return list_datalist<detail_branch>(__func__, list, datalist);
}
int ot_track_brief_list_datalist(ledger_dpv_list_request* list,
                                 ledger_dpv_datalist_request* datalist) {
  return list_datalist<brief_branch>(__func__, list, datalist);
}

}  // namespace ot
