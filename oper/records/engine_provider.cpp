// One row a service: its name, and how to count what waits for it.

#include "oper/records/engine_provider.h"

#include <array>
#include <string_view>

#include "core/connections.h"
#include "core/debug.h"
#include "oper/records/engine_record.h"
#include "platform/status.h"
#include "sources/bfd/pending.h"
#include "sources/interface/client.h"
#include "sources/interface/table.h"
#include "sources/probe/statistics.h"
#include "sources/route/pending.h"

namespace ot {
namespace {

// Probe tracks whose operation has no result.
std::uint32_t operations_without_result() noexcept {
  std::uint32_t count = 0;
  for (const auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    const bool waits =
        track->type == track_type::probe && track->source_state == track_state::unknown;
    count += waits ? 1U : 0U;
  }
  return count;
}

// Interfaces that a track follows and the interface manager does not know. It is asked: an entry's
// handle stays 0 when its interface comes later.
std::uint32_t interfaces_not_there() noexcept {
  std::uint32_t count = 0;
  for (const auto* entry = hash_db_first_data<interface_entry>(interfaces_table); entry != nullptr;
       entry = hash_db_next_data<interface_entry>(interfaces_table)) {
    std::uint32_t ifhandle = 0;
    const bool waits = entry->tracks != nullptr &&
                       ot_dpv_get_ifhandle(entry->ifname.c_str(), &ifhandle) != status_ok;
    count += waits ? 1U : 0U;
  }
  return count;
}

struct engine_row {
  const char* name;
  router_service service;
  std::uint32_t (*pending)() noexcept;
};
constexpr std::array engine_rows = {
    engine_row{"bfd", router_service::bfd_engine, bfd_cfg_count},
    engine_row{"probe", router_service::probe_service, operations_without_result},
    engine_row{"fib", router_service::fib, pending_route_count},
    engine_row{"interfaces", router_service::interface_manager, interfaces_not_there},
};
static_assert(engine_rows.size() == router_service_count);

using engine_records = std::array<engine_info__, router_service_count>;

void fill(engine_records& records) noexcept {
  for (std::size_t i = 0; i < records.size(); ++i) {
    const connection_state state = connection_of(engine_rows[i].service);
    records[i].Service.assign(engine_rows[i].name);
    records[i].Connected = state.connected;
    records[i].Since = static_cast<std::uint64_t>(state.since);
    records[i].Pending = engine_rows[i].pending();
    records[i].next = i + 1 < records.size() ? &records[i + 1] : nullptr;
  }
}

constexpr ledger_dpv_provider engine_provider[] = {
    {"engine", ot_dpv_engine_get, nullptr, nullptr},
};

}  // namespace

int ot_engine_provider_register() noexcept {
  return ledger_dpv_register("/oper/object_tracking/gl/", engine_provider);
}

int ot_dpv_engine_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  OT_TRACE_ENTRY();
  if (request->key == nullptr || std::string_view{request->key} != "all") {
    return ledger_no_data;
  }
  look_for_probe_service();
  engine_records records;
  fill(records);
  const int status =
      brec_encode(engine_info___brec, records.data(), &reply->buffer, &reply->length);
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : Brec encode failed (%s)", __func__, err_string(status));
    return ledger_no_data;
  }
  reply->data_kind = static_cast<std::uint32_t>(ledger_kind::record);
  return status_ok;
}

}  // namespace ot
