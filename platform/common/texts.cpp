// What people read in place of the platform's numbers: the text of every status code (one table for
// the platform's and the component's own codes, the system's texts for the errno values), the names
// of line states, probe return codes and interfaces. Operators read the status texts in refusals,
// so each says what is wrong and not where it was noticed.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "platform/brec.h"
#include "platform/component_status.h"
#include "platform/err_string.h"
#include "platform/event_connections.h"
#include "platform/fib_client.h"
#include "platform/interface_manager.h"
#include "platform/ledger_status.h"
#include "platform/probe_service.h"

namespace ot {
namespace {

struct error_text {
  int code;
  const char* text;
};

constexpr error_text error_texts[] = {
    {open_in_progress, "The open is still in progress"},
    {ledger_no_data, "No data"},
    {ledger_list_end, "End of the list"},
    {ledger_provider_failure, "The data provider failed"},
    {ledger_library_missing, "The ledger client library is not available"},
    {ledger_unreachable, "The service is not running"},
    {ledger_unknown_path, "The path is not known"},
    {ledger_wrong_kind, "The value is not of the path's kind"},
    {ledger_denied, "Permission denied by the ledger"},
    {ledger_full, "The ledger is full"},
    {ledger_storage_failure, "The ledger could not store the change"},
    {ledger_bad_message, "The ledger message is malformed"},
    {ledger_not_available, "The ledger does not offer this here"},
    {ledger_no_answer, "The service does not answer"},
    {ledger_busy, "The service is busy: it has no room for another client"},
    {ledger_read_only, "Operational data is written by the service alone"},
    {ledger_changed, "The configuration has changed meanwhile"},
    {fib_already_registered, "The prefix is already registered"},
    {record_bad_descriptor, "The record description is not valid"},
    {record_malformed, "The record is malformed"},
    {record_unknown_type, "The record type is not known"},
    {track_type_conflict, "The track already has another type"},
    {route_mask_not_contiguous, "The route mask is not contiguous"},
    {probe_package_missing, "The probe package is not available"},
    {probe_operation_taken, "The probe operation is already tracked"},
    {list_names_itself, "A list cannot name itself as a member"},
    {too_many_tracks, "Maximum number of tracks reached"},
    {threshold_limits_crossed, "Threshold Up value should be > Threshold Down Value"},
};

constexpr const char* state_names[] = {"IFM_STATE_UNKNOWN", "IFM_STATE_ADMIN_DOWN",
                                       "IFM_STATE_DOWN", "IFM_STATE_UP"};
static_assert(std::size(state_names) == ifm_state_up + 1);

}  // namespace

const char* err_string(int code) noexcept {
  for (const error_text& row : error_texts) {
    if (row.code == code) {
      return row.text;
    }
  }
  if (const char* text = strerrordesc_np(code)) {
    return text;
  }
  thread_local char unknown[32];
  std::snprintf(unknown, sizeof unknown, "Unknown code 0x%08x", static_cast<unsigned>(code));
  return unknown;
}

// Also asked for the service's own marks for "not reported yet", which are no line states.
const char* ifm_state_name(std::uint32_t state) noexcept {
  return state_names[state < std::size(state_names) ? state : ifm_state_unknown];
}

// Names of this router are for people already.
void ifc_display_namestring(const char* name, char* buffer, std::size_t size,
                            std::uint32_t /*format*/) noexcept {
  if (size == 0) {
    return;
  }
  const std::size_t length = std::min(std::strlen(name), size - 1);
  std::memcpy(buffer, name, length);
  buffer[length] = '\0';
}

// The numbers are the probe service's own.
const char* qmon_retCodeToStr(std::uint32_t code) noexcept {
  constexpr std::array texts = {
      "No result yet",     "OK",         "No answer (timeout)", "Unreachable", "Refused",
      "Name not resolved", "Bad answer", "Cannot run",
  };
  if (code < texts.size()) {
    return texts[code];
  }
  thread_local char text[40];
  std::snprintf(text, sizeof text, "Unknown return code %u", code);
  return text;
}

}  // namespace ot
