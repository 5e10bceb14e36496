// All tracks' states as one chain, laid in one piece.
#include "oper/records/states.h"

#include <memory>
#include <new>
#include <string_view>

#include "core/debug.h"
#include "core/track.h"
#include "oper/records/provider.h"
#include "oper/records/track_records.h"
#include "platform/ledger_status.h"
#include "platform/status.h"
#include "state/timers.h"

namespace ot {
namespace {

constexpr ledger_dpv_provider states_provider[] = {
    {"states", ot_dpv_states_get, nullptr, nullptr},
};

void fill(const ot_track& track, state_info__& record) noexcept {
  record.Name = track.name;
  record.State = static_cast<std::uint32_t>(track.state);
  record.Source = static_cast<std::uint32_t>(track.source_state);
  const ot_timer_ctx* ctx = get_timer_ctx(track.delay_timer);
  if (ctx != nullptr && wtm_timer_leaf_running(track.delay_timer)) {
    record.Delayed = true;
    record.Waiting = ctx->value;
    record.Remaining = wtm_timer_leaf_remaining_ms(track.delay_timer);
  }
}

std::size_t count_tracks() noexcept {
  std::size_t count = 0;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    ++count;
  }
  return count;
}

int encode_all(ledger_dpv_reply& reply) noexcept {
  const std::size_t count = count_tracks();
  const std::unique_ptr<state_info__[]> records{new (std::nothrow) state_info__[count]};
  if (records == nullptr) {
    return no_memory;
  }
  std::size_t place = 0;
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr && place < count;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    fill(*track, records[place]);
    ++place;
    records[place - 1].next = place < count ? &records[place] : nullptr;
  }
  return brec_encode(state_info___brec, records.get(), &reply.buffer, &reply.length);
}

int encode_one(const ot_track& track, ledger_dpv_reply& reply) noexcept {
  state_info__ record;
  fill(track, record);
  return brec_encode(state_info___brec, &record, &reply.buffer, &reply.length);
}

}  // namespace

int ot_states_provider_register() noexcept {
  const int status = ot_states_record_register();
  return status == status_ok ? ledger_dpv_register("/oper/object_tracking/gl/", states_provider)
                             : status;
}

int ot_dpv_states_get(ledger_dpv_reply* reply, const ledger_dpv_request* request) {
  OT_TRACE_ENTRY();
  const std::string_view key = request->key == nullptr ? "" : request->key;
  const ot_track* track = key == "all" ? nullptr : hash_db_get_track_item(request->key);
  if (key == "all" ? count_tracks() == 0 : track == nullptr) {
    return ledger_no_data;
  }
  const int status = track == nullptr ? encode_all(*reply) : encode_one(*track, *reply);
  return ot_dpv_encoded(__func__, status, *reply);
}

}  // namespace ot
