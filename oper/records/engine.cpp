// What each kind of tracks needs of the router, as its row says; the loop's longest turn; and how
// much of the log was dropped.

#include "oper/records/engine.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "core/connections.h"
#include "core/debug.h"
#include "core/track_kind.h"
#include "oper/records/provider.h"
#include "platform/ledger_status.h"
#include "platform/loop_turns.h"
#include "platform/messages.h"

namespace ot {
namespace {

using engine_records = std::array<engine_info__, router_service_count>;

// The services in their own order, whatever the order of the kinds that need them.
engine_info__* fill(engine_records& records) noexcept {
  engine_info__* head = nullptr;
  engine_info__** end = &head;
  for (std::size_t index = 0; index < records.size(); ++index) {
    const auto service = static_cast<router_service>(index);
    for (const track_kind* kind : track_kinds()) {
      if (kind->service == nullptr || kind->service->service != service) {
        continue;
      }
      const connection_state state = connection_of(service);
      engine_info__& record = records[index];
      record.Service.assign(kind->service->name);
      record.Connected = state.connected;
      record.Since = static_cast<std::uint64_t>(state.since);
      record.Pending = kind->service->pending();
      if (kind->service->detail != nullptr) {
        record.Detail = kind->service->detail();
      }
      if (kind->service->discarded != nullptr) {
        record.Discarded = kind->service->discarded();
      }
      *end = &record;
      end = &record.next;
    }
  }
  return head;
}

void look_at_services() noexcept {
  for (const track_kind* kind : track_kinds()) {
    if (kind->service != nullptr && kind->service->look != nullptr) {
      kind->service->look();
    }
  }
}

const evm* main_loop = nullptr;

int encode_services(ledger_dpv_reply& reply) noexcept {
  look_at_services();
  engine_records records;
  return brec_encode(engine_info___brec, fill(records), &reply.buffer, &reply.length);
}

int encode_loop(ledger_dpv_reply& reply) noexcept {
  const loop_turns turns = evm_turns(main_loop);
  const loop_info__ record{
      static_cast<std::uint64_t>(turns.since), static_cast<std::uint64_t>(turns.longest_at),
      static_cast<std::uint32_t>(std::min<std::uint64_t>(turns.longest_us, UINT32_MAX))};
  return brec_encode(loop_info___brec, &record, &reply.buffer, &reply.length);
}

int encode_log(ledger_dpv_reply& reply) noexcept {
  const log_info__ record{errmsg_dropped()};
  return brec_encode(log_info___brec, &record, &reply.buffer, &reply.length);
}

struct engine_key {
  std::string_view word;
  int (*encode)(ledger_dpv_reply& reply) noexcept;
};
constexpr engine_key keys[] = {
    {"all", encode_services}, {"loop", encode_loop}, {"log", encode_log}};

constexpr ledger_dpv_provider engine_provider[] = {
    {"engine", ot_dpv_engine_get, nullptr, nullptr},
};

}  // namespace

const brec_descriptor engine_info___brec = {
    1,
    "engine_info__",
    "libobject_tracking_brec_desc.dll",
    {},
    sizeof(engine_info__),
    "$12=L{next}p($12){Service}33x%S{Connected}b{Since}H{Pending}D{Detail}224x%S{Discarded}H;",
    "$12=Lp($12)33x%SbHD224x%SH;"};

const brec_descriptor loop_info___brec = {
    1,         "loop_info__",       "libobject_tracking_brec_desc.dll",
    {},        sizeof(loop_info__), "$13={Since}H{LongestAt}H{LongestTurn}D;",
    "$13=HHD;"};

const brec_descriptor log_info___brec = {
    1,       "log_info__",       "libobject_tracking_brec_desc.dll",
    {},      sizeof(log_info__), "$14={Dropped}H;",
    "$14=H;"};

int ot_engine_record_register() noexcept {
  static constexpr const brec_descriptor* descriptors[] = {&engine_info___brec, &loop_info___brec,
                                                           &log_info___brec};
  return register_records(descriptors);
}

int ot_engine_provider_register(const evm* manager) noexcept {
  main_loop = manager;
  return ledger_dpv_register("/oper/object_tracking/gl/", engine_provider);
}

int ot_dpv_engine_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  OT_TRACE_ENTRY();
  const std::string_view word = request->key == nullptr ? "" : request->key;
  const auto* const key = std::find_if(std::begin(keys), std::end(keys),
                                       [word](const engine_key& row) { return row.word == word; });
  if (key == std::end(keys)) {
    return ledger_no_data;
  }
  return ot_dpv_encoded(__func__, key->encode(*reply), *reply);
}

}  // namespace ot
