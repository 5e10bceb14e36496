// When which registered prefixes are looked up again.
#include <linux/rtnetlink.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <utility>
#include <vector>

#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/routes/session.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t msec = 1000;
constexpr std::uint64_t settle_after = 50 * msec;
constexpr std::uint64_t pause_least = 1 * msec;
constexpr std::uint64_t pause_most = 50 * msec;
constexpr std::uint64_t tables_pause_most = 2'000 * msec;
constexpr std::uint64_t pause_factor = 4;

}  // namespace

// The first event is answered at once, most of those that follow closely after a pause. While
// nothing is watched the kernel is asked nothing.
void fib_session::take_events() {
  if (prefixes_.empty()) {
    changes_.clear();
    lookup_.forget_names();
    return;
  }
  if (!changes_.for_now()) {
    return;  // routes that concern nobody
  }
  if (!pausing_ && !waiting_) {
    await_and_look(false);
  } else if (!reading_tables_) {
    look_inside_burst();
  }
}

// After a pause: what came in it is looked at. After a longer time without events everything is
// looked at once more.
int fib_session::on_settled(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  session.rest_due_ = false;
  if (session.waiting_) {
    return 0;
  }
  if (!session.changes_.none()) {
    session.await_and_look(true);
  } else if (session.pausing_) {
    session.pausing_ = false;
    session.arm(&session.settled_, settle_after, on_settled);
  } else {
    session.look_again(true);
  }
  return 0;
}

// Routes are announced when they are there; what else changes has to be whole first. Without a
// thread that waits for it, the loop does.
void fib_session::await_and_look(bool all) {
  all_ = all || changes_.everything();
  if (!changes_.of_links()) {
    look_and_pause();
    return;
  }
  more_changed_ = false;
  if (waiter_.open(manager_) == status_ok) {
    waiting_ = true;
    waiter_.ask();
  } else {
    lookup_.await_change();
    look_and_pause();
  }
}

// The pause is a multiple of what the look took, so looking never takes all the time there is. A
// link that no prefix depends on takes none: the next one may be the one that everybody waits for.
void fib_session::look_and_pause() {
  using std::chrono::steady_clock;
  const auto begin = steady_clock::now();
  const bool all = std::exchange(all_, false);
  const bool any = look_again(all);
  if (std::exchange(more_changed_, false)) {
    changes_.note_everything();
  }
  const auto taken =
      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin);
  const auto pause = std::clamp(pause_factor * static_cast<std::uint64_t>(taken.count()),
                                pause_least, reading_tables_ ? tables_pause_most : pause_most);
  pause_ = all ? pause : pause_;
  pausing_ = any || changes_.everything();
  if (pausing_ || !rest_due_) {
    rest_due_ = !pausing_;
    arm(&settled_, changes_.rest() ? std::max(pause, pause_) : pause, on_settled);
  }
}

int fib_session::on_audit(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  session.filter_messages();      // by what is still registered
  if (session.changes_.none()) {  // else a look is due in any case
    session.look_again(true);
  }
  session.schedule_audit();
  return 0;
}

// At all prefixes, or only at those that what changed is known to concern; whether there were any.
bool fib_session::look_again(bool all) {
  if (changes_.of_links()) {
    lookup_.forget_names();
  }
  const std::vector<fib_prefix> routes = changes_.take_routes();
  const std::vector<std::uint32_t> links = changes_.take_links();
  lookup_.forget_tables();
  lookup_.count_tables_anew();
  bool any = true;
  if (all) {
    changes_.clear();
    prefixes_.keep_tables(
        [](std::uint32_t table) { return the_vrf_devices().with_table_id(table) != nullptr; });
    prefixes_.look_at_all();
  } else {
    prefixes_.look_at_related(routes);
    any = prefixes_.look_at_using(links) || !routes.empty();
  }
  reading_tables_ = lookup_.has_read_tables();
  report();
  return any;
}

// In a pause only the prefixes that contain a changed route are looked up at once: those may be the
// ones that everybody waits for.
void fib_session::look_inside_burst() {
  for (const fib_prefix& route : changes_.unseen()) {
    prefixes_.look_at_containing(route);
  }
  report();
}

// Hands over what looks found. What they could not learn is found by the next look at everything,
// which is due in any case or is due for that.
void fib_session::report() {
  if (prefixes_.take_failed() && !pausing_ && !waiting_ && !rest_due_) {
    arm(&settled_, settle_after, on_settled);
  }
  prefixes_.notify(callbacks_.changed);
}

}  // namespace ot
