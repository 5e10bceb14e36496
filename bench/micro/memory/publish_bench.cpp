// The service's own share of a publication: record, ledger item, notification, event and the
// request to recalculate lists, with an in-memory platform behind it.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>

#include "platform/event_manager.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "platform/service.h"
#include "sources/interface/track.h"
#include "state/publication.h"

namespace ot {
namespace {

void publish_memory(benchmark::State& state) {
  field::reset();
  ledger_control_reset();
  evm* manager = nullptr;
  if (evm_create(&manager) != 0 || ot_start(manager, 0) != 0) std::abort();
  field::interface_added("eth0");
  if (object_tracking_type_interface_create("eth0", "uplink") != 0) std::abort();
  track_state next = track_state::down;
  unsigned published = 0;
  for (auto _ : state) {
    object_tracking_set_track_state_in_ledger_after_timer_expired("uplink", next);
    next = next == track_state::down ? track_state::up : track_state::down;
    if (++published % 512 == 0) {
      // What the platform in memory has collected is thrown away, unmeasured.
      state.PauseTiming();
      field::advance(std::chrono::seconds(1));
      field::take_messages();
      ledger_control_take_notifications();
      state.ResumeTiming();
    }
  }
  ot_stop();
  evm_destroy(manager);
}
BENCHMARK(publish_memory);

}  // namespace
}  // namespace ot
