// A page is built from the ring as it is then; what comes meanwhile has higher numbers and stands
// on a later page, so nothing is told twice and nothing that is kept is left out.

#include "oper/records/history.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "core/debug.h"
#include "core/wall_clock.h"
#include "oper/records/provider.h"
#include "oper/records/track_records.h"
#include "platform/ledger_status.h"
#include "state/history.h"

namespace ot {
namespace {

constexpr ledger_dpv_provider history_provider[] = {
    {"history", ot_dpv_history_get, ot_history_list, ot_history_datalist},
};

history_change__ record_of(std::uint64_t number) noexcept {
  const state_change& change = state_change_at(number);
  history_change__ record;
  record.Number = number;
  record.When = static_cast<std::uint64_t>(wall_clock_at(change.when_ms));
  record.TrackName = change.track;
  record.From = change.from;
  record.To = change.to;
  record.Cause = static_cast<std::uint32_t>(change.cause);
  return record;
}

// The number that a marker stands for; nothing for what is none.
std::optional<std::uint64_t> number_of(const char* marker) noexcept {
  const std::string_view text = marker == nullptr ? "" : marker;
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (!text.empty() && (error != std::errc{} || end != text.data() + text.size())) {
    return std::nullopt;
  }
  return number;
}

int add_changes(std::uint64_t first, std::uint64_t last, const ledger_dpv_list_request* list,
                const ledger_dpv_datalist_request* datalist, ledger_dpv_list* list_handle,
                ledger_dpv_datalist* datalist_handle) noexcept {
  for (std::uint64_t number = first; number <= last; ++number) {
    std::array<char, 24> name{};
    std::to_chars(name.data(), name.data() + name.size() - 1, number);
    const history_change__ record = record_of(number);
    char error_text[256] = "";
    const int status =
        ot_add_list_datalist(list, datalist, list_handle, datalist_handle, name.data(), &record,
                             history_change___brec, error_text, sizeof error_text);
    if (status != status_ok) {
      OT_TRACE_ERROR("(%s) : %s", "ot_history_datalist", error_text);
      return status;
    }
  }
  return status_ok;
}

int mark_more(ledger_dpv_list* list, ledger_dpv_datalist* datalist) noexcept {
  return list != nullptr ? ledger_dpv_list_set_more_flag(list)
                         : ledger_dpv_datalist_set_more_flag(datalist);
}

int answer(const char* marker, ledger_dpv_list_request* list,
           ledger_dpv_datalist_request* datalist) noexcept {
  const std::optional<std::uint64_t> behind = number_of(marker);
  const history_extent kept = state_history();
  if (!behind || *behind >= kept.last) {
    return ledger_no_data;
  }
  const std::uint64_t first = std::max(*behind + 1, kept.first);
  const std::uint64_t last = std::min(kept.last, first + history_page - 1);
  ledger_dpv_list* list_handle = nullptr;
  ledger_dpv_datalist* datalist_handle = nullptr;
  int status = ot_init_list_datalist(list, datalist, &list_handle, &datalist_handle);
  if (status != status_ok) {
    return status;
  }
  status = add_changes(first, last, list, datalist, list_handle, datalist_handle);
  if (status == status_ok && last < kept.last) {
    status = mark_more(list_handle, datalist_handle);
  }
  ot_release_list_datalist(list, datalist, list_handle, datalist_handle,
                           static_cast<std::uint32_t>(last - first + 1), status);
  return status;
}

}  // namespace

const brec_descriptor history_change___brec = {
    1,
    "history_change__",
    "libobject_tracking_brec_desc.dll",
    {},
    sizeof(history_change__),
    "$15={Number}H{When}H{TrackName}40x%S{From}D{To}D{Cause}D;",
    "$15=HH40x%SDDD;"};

const brec_descriptor history_info___brec = {
    1,         "history_info__",       "libobject_tracking_brec_desc.dll",
    {},        sizeof(history_info__), "$16={Since}H{First}H{Last}H;",
    "$16=HHH;"};

int ot_history_record_register() noexcept {
  static constexpr const brec_descriptor* descriptors[] = {&history_change___brec,
                                                           &history_info___brec};
  return register_records(descriptors);
}

int ot_history_provider_register() noexcept {
  return ledger_dpv_register("/oper/object_tracking/gl/", history_provider);
}

int ot_dpv_history_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  OT_TRACE_ENTRY();
  if (request->key == nullptr || std::strcmp(request->key, "extent") != 0) {
    return ledger_no_data;
  }
  const history_extent kept = state_history();
  const history_info__ record{static_cast<std::uint64_t>(wall_clock_at(kept.since_ms)), kept.first,
                              kept.last};
  return ot_dpv_encoded(
      __func__, brec_encode(history_info___brec, &record, &reply->buffer, &reply->length), *reply);
}

int ot_history_list(ledger_dpv_list_request* request) {
  return answer(request->marker, request, nullptr);
}

int ot_history_datalist(ledger_dpv_datalist_request* request) {
  return answer(request->marker, nullptr, request);
}

}  // namespace ot
