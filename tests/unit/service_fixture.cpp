// The fixture's insides.
#include "tests/unit/service_fixture.h"

#include <algorithm>
#include <stdexcept>

#include "core/debug.h"
#include "platform/event_manager.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "platform/service.h"
#include "sources/bfd/client.h"
#include "state/ledger_state.h"

namespace ot::test {

std::string track_path(const std::string& track, const std::string& item) {
  return "/cfg/gl/object_tracking/track/" + track + "/" + item;
}

std::vector<ledger_proposal> interface_track(const std::string& track,
                                             const std::string& interface) {
  return {set_number(track_path(track, "a"), 1),
          set_number(track_path(track, "type/interface/0x1/a"), 1),
          set_text(track_path(track, "type/interface/0x1/info/interface"), interface)};
}

service_fixture::service_fixture() {
  field::reset();
  ledger_control_reset();
  if (evm_create(&manager) != 0) {
    throw std::runtime_error{"no event manager"};
  }
}

service_fixture::~service_fixture() {
  EXPECT_THAT(field::failures_left(), testing::IsEmpty()) << "failures that never happened";
  trace(false);
  stop();
}

int service_fixture::start(std::uint32_t start_count) {
  if (manager == nullptr && evm_create(&manager) != 0) {
    throw std::runtime_error{"no event manager"};
  }
  const std::size_t ended = field::threads_ended();
  const int status = ot_start(manager, start_count);
  if (status == 0) {  // the BFD thread runs its loop, or could not
    field::await([ended] { return is_ot_bfd_init_done != 0 || field::threads_ended() > ended; });
  }
  field::run_pending();
  return status;
}

void service_fixture::stop() {
  evdl_unsubscribe(subscriber_);
  subscriber_ = nullptr;
  ot_stop();
  evm_destroy(manager);
  manager = nullptr;
  ledger_control_restart();
}

int service_fixture::restart() {
  stop();
  return start(2);
}

void service_fixture::trace(bool on) {
  for (dbg_flag& flag : ot_debug) {
    flag.enabled = on ? 1 : 0;
  }
  forget_output();
}

void service_fixture::forget_output() {
  field::take_traces();
  field::take_messages();
}

int service_fixture::commit(const std::vector<ledger_proposal>& changes) {
  const int status = ledger_commit(ledger_get_default_conn(), changes, &refusals);
  field::run_pending();
  return status;
}

int service_fixture::delete_track(const std::string& name) {
  std::vector<ledger_proposal> changes;
  ledger_item_walk(
      ledger_get_default_conn(), track_path(name, "").substr(1).c_str(),
      [](void* context, std::string_view path, const ledger_value&) {
        auto* removals = static_cast<std::vector<ledger_proposal>*>(context);
        removals->push_back(remove_item("/" + std::string{path}));
        return true;
      },
      &changes);
  const std::string existence = track_path(name, "a");
  std::stable_partition(changes.begin(), changes.end(),
                        [&](const ledger_proposal& change) { return change.path != existence; });
  return commit(changes);
}

std::optional<std::uint32_t> service_fixture::published(const std::string& track) {
  ledger_value value;
  const int status = ledger_control_peek(published_states_path + track, value);
  return status == 0 ? std::optional{value.as_u32()} : std::nullopt;
}

std::vector<std::string> service_fixture::take_notifications() {
  std::vector<std::string> lines;
  for (const auto& batch : ledger_control_take_notifications()) {
    for (const ledger_sent_notification& entry : batch) {
      const std::string track = entry.path.substr(std::string{published_states_path}.size());
      lines.push_back(track + (entry.kind == 2 ? " set " : " delete ") +
                      std::to_string(entry.value));
    }
  }
  return lines;
}

std::vector<std::string> service_fixture::take_events() {
  std::vector<std::string> lines;
  const int status = subscriber_ == nullptr
                         ? evdl_subscribe({}, &subscriber_)
                         : evdl_receive(subscriber_, 0, [&](const evdl_track_event& event) {
                             lines.push_back(event.track + " " + std::to_string(event.state));
                           });
  EXPECT_EQ(status, 0);
  return lines;
}

ot_track& service_fixture::track(const std::string& name) {
  ot_track* found = hash_db_get_track_item(name.c_str());
  if (found == nullptr) {
    throw std::runtime_error{"no track " + name};
  }
  return *found;
}

void running_service::SetUp() {
  ASSERT_EQ(start(), 0);
}

}  // namespace ot::test
