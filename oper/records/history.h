// The operational data below "/oper/object_tracking/gl/history/": the last changes of states, for
// readers in other programs. As a list it is read in pages, oldest first; an item is named by the
// change's number, so a reader goes on where it was with the last number it has seen. The key
// "extent" tells which numbers there are. Main thread.
#pragma once

#include <cstdint>

#include "platform/brec.h"
#include "platform/fixed_text.h"
#include "platform/ledger_provider.h"

namespace ot {

struct history_change__ {
  std::uint64_t Number = 0;
  std::uint64_t When = 0;  // wall clock, milliseconds
  fixed_text<40> TrackName;
  std::uint32_t From = 0;  // 0 unknown, 1 up, 2 down
  std::uint32_t To = 0;
  std::uint32_t Cause = 0;  // as change_cause counts
};

struct history_info__ {
  std::uint64_t Since = 0;  // wall clock, milliseconds: when the history began
  std::uint64_t First = 0;  // the numbers of the changes that are kept; none while Last < First
  std::uint64_t Last = 0;
};

// How many changes a page has.
inline constexpr std::uint32_t history_page = 256;

extern const brec_descriptor history_change___brec;
extern const brec_descriptor history_info___brec;

// Registers the records' types, beside those of the tracks. As ot_records_register; readers in
// other programs call it too.
int ot_history_record_register() noexcept;

// Registers the branch. After the records' types, before the first request. Status code.
int ot_history_provider_register() noexcept;

// Answers the key "extent". 0 with the reply filled, or ledger_no_data.
int ot_dpv_history_get(ledger_dpv_reply* reply, const ledger_dpv_request* request);

// At most a page of the changes behind the number that the marker is; of one that is no longer kept
// the oldest that are. 0 with count and handle in the request, ledger_no_data (also for a marker
// that is no number), or ledger_provider_failure.
int ot_history_list(ledger_dpv_list_request* request);
int ot_history_datalist(ledger_dpv_datalist_request* request);

}  // namespace ot
