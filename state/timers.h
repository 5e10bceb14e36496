// The service's timers: one managed tree with four kinds of leaves. Expiries come as one
// asynchronous event of the main loop; the handler drains every expired leaf and dispatches by
// kind. Main thread.
#pragma once

#include <cstdint>

#include "core/track_type.h"
#include "platform/evm.h"
#include "platform/timer_tree.h"

namespace ot {

enum class timer_kind : std::uint32_t {
  list_calculation = 1,  // 20 ms, one for the process
  probe_poll = 2,        // 2 s, one a probe track
  track_delay = 3,       // the delay in seconds, one a track
  notification = 4,      // 100 ms, one for the process
};

// What an expiry is about. Allocated by whoever arms the timer and attached to the leaf.
struct ot_timer_ctx {
  std::uint32_t type = 0;  // a timer_kind
  track_name name;
  std::uint32_t value = 0;  // track_delay: the track state to publish, or pending_of_track
};
static_assert(sizeof(ot_timer_ctx) == 48);

// In a delay whose track has got another timer while it ran: whatever that one's context carries
// at the expiry. Nothing when the track is gone.
inline constexpr std::uint32_t pending_of_track = 0xffffffff;

// What an expiry of a kind does, with the context of the leaf. Whoever uses the kind sets its hook
// before the first expiry; failures are the hook's to trace, and never stop the draining.
using timer_hook = void (*)(const ot_timer_ctx& ctx);
void set_timer_hook(timer_kind kind, timer_hook hook) noexcept;

// The two process timers, created by ot_process_timers_create.
extern wtm_leaf* tracks_calc_timer;
extern wtm_leaf* tracks_nfn_timer;

// Builds the tree on `manager`. 0, or 22 with nothing left behind.
int ot_timers_init(evm* manager) noexcept;

// Creates tracks_calc_timer and tracks_nfn_timer, stopped. 0 or 12. After ot_timers_init, before
// any track is configured.
int ot_process_timers_create() noexcept;

// Frees the process timers and the tree with all its leaves: the end of a service in a test.
void ot_timers_stop() noexcept;

// Handler of the tree's asynchronous event.
void handle_ot_wtm_timer_expired(void* argument);

// A new zeroed context, or null without memory.
ot_timer_ctx* new_timer_ctx(timer_kind kind, const char* name, std::uint32_t value) noexcept;

// Create a stopped leaf that carries `ctx`: a process timer (list_calculation or notification), a
// track's delay, a probe's poll. Null for a null context, a zero `lifetime`, a context of another
// kind or no memory; the context stays the caller's then.
wtm_leaf* set_ot_timer(ot_timer_ctx* ctx, std::uint32_t lifetime) noexcept;
wtm_leaf* set_ot_delay_timer(ot_timer_ctx* ctx) noexcept;
wtm_leaf* set_ot_shm_poll_timer(ot_timer_ctx* ctx) noexcept;

// Start a leaf: 20 ms, 100 ms, 2 s, or a delay in seconds with its context. A running one starts
// anew. 0, or 22 for a null leaf.
int set_ot_wait_timer(wtm_leaf* leaf) noexcept;
int set_ot_nfn_timer(wtm_leaf* leaf) noexcept;
int set_ot_shm_poll_wait_timer(wtm_leaf* leaf) noexcept;
int set_ot_wait_delay_timer(wtm_leaf* leaf, std::uint32_t seconds, ot_timer_ctx* ctx) noexcept;

// The leaf's context, or null.
ot_timer_ctx* get_timer_ctx(wtm_leaf* leaf) noexcept;

// Frees the leaf's context. The leaf goes on, and still points to it: for callers that free or
// re-arm the leaf next.
void clear_ctx_ot_timer(wtm_leaf* leaf) noexcept;

void stop_ot_timer(wtm_leaf* leaf) noexcept;

// Gives up a leaf whose track is gone: frees it and its context at once when it is stopped. A
// running one still expires and does its work, and is freed after that.
void release_ot_timer(wtm_leaf* leaf) noexcept;

// A track of that name is made anew: leaves of its predecessor that still run are freed, and do
// nothing any more. Whether there were any.
bool drop_outliving_timers(const char* name) noexcept;

}  // namespace ot
