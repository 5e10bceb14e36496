// The timer tree of the service: its four groups of leaves, arming them, and the dispatch of what
// has expired. Whatever differs between the kinds stands in one table.

#include "state/timers.h"

#include <array>
#include <new>

#include "core/debug.h"
#include "platform/event_manager.h"
#include "platform/status.h"

namespace ot {

wtm_leaf* tracks_calc_timer = nullptr;
wtm_leaf* tracks_nfn_timer = nullptr;

namespace {

constexpr int expiry_event_code = 128;

// Waking up for a poll costs several times what the poll does. A divisor of the polls' 2 s.
constexpr std::uint64_t poll_step_ns = 100'000'000;

wtm_tree* timer_tree = nullptr;
wtm_parent* calc_parent = nullptr;
wtm_parent* delay_parent = nullptr;
wtm_parent* notification_parent = nullptr;
wtm_parent* tracks_shm_poll_request_root = nullptr;

struct kind_row {
  timer_kind kind;
  const char* name;  // in the expiry trace
  timer_hook expired = nullptr;
};

// The notification timer has no name of its own in traces.
std::array kinds = {
    kind_row{timer_kind::list_calculation, "OT_MSG_TIMER_TRACKS_CALC"},
    kind_row{timer_kind::probe_poll, "PRB_SHM_POLL_INTERVAL"},
    kind_row{timer_kind::track_delay, "OT_MSG_TIMER_TRACKS_DELAY"},
    kind_row{timer_kind::notification, "UNKNOWN"},
};

kind_row* kind_of(std::uint32_t type) noexcept {
  for (kind_row& row : kinds) {
    if (static_cast<std::uint32_t>(row.kind) == type) {
      return &row;
    }
  }
  return nullptr;
}

// Creates a leaf of `ctx`'s kind under `parent`, or complains in `who`'s name.
wtm_leaf* new_leaf(wtm_parent* parent, ot_timer_ctx* ctx, const char* who) noexcept {
  wtm_leaf* leaf =
      wtm_timer_leaf_new(timer_tree, parent, static_cast<std::uint16_t>(ctx->type), ctx);
  if (leaf == nullptr) {
    OT_TRACE_ERROR("(%s) timer is NULL", who);
  }
  return leaf;
}

bool has_kind(const ot_timer_ctx& ctx, timer_kind kind) noexcept {
  return ctx.type == static_cast<std::uint32_t>(kind);
}

wtm_leaf* unknown_kind(const ot_timer_ctx& ctx, const char* who) noexcept {
  OT_TRACE_ERROR("(%s) unknown timer type %d", who, static_cast<int>(ctx.type));
  return nullptr;
}

int start(wtm_leaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds) noexcept {
  return leaf == nullptr ? invalid_argument : wtm_timer_leaf_start(leaf, seconds, nanoseconds);
}

void dispatch_expired(wtm_leaf* leaf) {
  wtm_timer_leaf_stop(leaf);
  const kind_row* row = kind_of(wtm_timer_leaf_get_type(leaf));
  OT_TRACE_DETAIL("(%s) : %s expired", "handle_ot_wtm_timer_expired",
                  row == nullptr ? "UNKNOWN" : row->name);
  const ot_timer_ctx* ctx = get_timer_ctx(leaf);
  if (ctx == nullptr) {
    return;
  }
  if (row == nullptr) {
    unknown_kind(*ctx, "handle_ot_wtm_timer_expired");
  } else if (row->expired != nullptr) {
    row->expired(*ctx);
  }
}

// Leaves that were given up while they ran. There is seldom one.
std::uint32_t outliving = 0;
const char* outliving_name = nullptr;  // of the leaf that is looked for
wtm_leaf* outliving_leaf = nullptr;    // found, or null

void find_outliving(wtm_leaf* leaf) noexcept {
  const auto* ctx = static_cast<const ot_timer_ctx*>(wtm_timer_leaf_get_context(leaf));
  if (wtm_timer_leaf_get_mark(leaf) && ctx != nullptr && ctx->name == outliving_name) {
    outliving_leaf = leaf;
  }
}

void free_outliving(wtm_leaf* leaf) noexcept {
  --outliving;
  clear_ctx_ot_timer(leaf);
  wtm_timer_leaf_free(leaf);
}

// Nobody else frees the context of a delay that outlived its track.
void free_outliving_context(wtm_leaf* leaf) noexcept {
  if (wtm_timer_leaf_get_mark(leaf)) {
    clear_ctx_ot_timer(leaf);
  }
}

int init_failed() noexcept {
  wtm_timer_tree_free(timer_tree);
  timer_tree = nullptr;
  return invalid_argument;
}

}  // namespace

void set_timer_hook(timer_kind kind, timer_hook hook) noexcept {
  kind_of(static_cast<std::uint32_t>(kind))->expired = hook;
}

int ot_timers_init(evm* manager) noexcept {
  OT_TRACE_ENTRY();
  const int code =
      evm_async_attach(manager, expiry_event_code, handle_ot_wtm_timer_expired, nullptr);
  if (code == -1) {
    return invalid_argument;
  }
  evm_sigevent event;
  if (evm_init_sigevent(manager, code, 0, 0, &event) != status_ok) {
    return invalid_argument;
  }
  timer_tree = wtm_timer_tree_new(event, 0);
  if (timer_tree == nullptr) {
    return invalid_argument;
  }
  for (wtm_parent** parent : {&calc_parent, &delay_parent, &notification_parent}) {
    *parent = wtm_timer_parent_new(timer_tree, 0);
    if (*parent == nullptr) {
      return init_failed();
    }
  }
  tracks_shm_poll_request_root = wtm_timer_parent_new(timer_tree, 0);
  if (tracks_shm_poll_request_root == nullptr) {
    OT_TRACE_DETAIL(" tracks_shm_poll_request_root == NULL");
    return init_failed();
  }
  wtm_timer_parent_align(tracks_shm_poll_request_root, poll_step_ns);
  OT_TRACE_DETAIL("set : tracks_shm_poll_request_root");
  return status_ok;
}

int ot_process_timers_create() noexcept {
  struct process_timer {
    wtm_leaf** leaf;
    timer_kind kind;
  };
  for (const process_timer& timer :
       {process_timer{&tracks_calc_timer, timer_kind::list_calculation},
        process_timer{&tracks_nfn_timer, timer_kind::notification}}) {
    ot_timer_ctx* ctx = new_timer_ctx(timer.kind, "", 0);
    *timer.leaf = set_ot_timer(ctx, 1);
    if (*timer.leaf == nullptr) {
      delete ctx;
      return no_memory;
    }
  }
  return status_ok;
}

void ot_timers_stop() noexcept {
  for (wtm_leaf** leaf : {&tracks_calc_timer, &tracks_nfn_timer}) {
    clear_ctx_ot_timer(*leaf);
    *leaf = nullptr;
  }
  if (timer_tree != nullptr) {
    wtm_timer_tree_walk(timer_tree, free_outliving_context);
  }
  wtm_timer_tree_free(timer_tree);
  timer_tree = nullptr;
  outliving = 0;
}

void handle_ot_wtm_timer_expired(void*) {
  OT_TRACE_ENTRY();
  while (wtm_timer_tree_expired(timer_tree)) {
    wtm_leaf* leaf = wtm_timer_tree_first_expired(timer_tree);
    if (leaf == nullptr) {
      continue;
    }
    dispatch_expired(leaf);
    if (wtm_timer_leaf_get_mark(leaf)) {
      free_outliving(leaf);
    }
  }
}

ot_timer_ctx* new_timer_ctx(timer_kind kind, const char* name, std::uint32_t value) noexcept {
  auto* ctx = new (std::nothrow) ot_timer_ctx{};
  if (ctx != nullptr) {
    ctx->type = static_cast<std::uint32_t>(kind);
    ctx->name.assign(name);
    ctx->value = value;
  }
  return ctx;
}

wtm_leaf* set_ot_timer(ot_timer_ctx* ctx, std::uint32_t lifetime) noexcept {
  OT_TRACE_DETAIL(" (%s): lifetime = %d", __func__, static_cast<int>(lifetime));
  if (ctx == nullptr || lifetime == 0) {
    return nullptr;
  }
  if (has_kind(*ctx, timer_kind::list_calculation)) {
    return new_leaf(calc_parent, ctx, __func__);
  }
  if (has_kind(*ctx, timer_kind::notification)) {
    return new_leaf(notification_parent, ctx, __func__);
  }
  return unknown_kind(*ctx, __func__);
}

wtm_leaf* set_ot_delay_timer(ot_timer_ctx* ctx) noexcept {
  OT_TRACE_DETAIL("(%s)", __func__);
  if (ctx == nullptr) {
    return nullptr;
  }
  return has_kind(*ctx, timer_kind::track_delay) ? new_leaf(delay_parent, ctx, __func__)
                                                 : unknown_kind(*ctx, __func__);
}

wtm_leaf* set_ot_shm_poll_timer(ot_timer_ctx* ctx) noexcept {
  OT_TRACE_ENTRY();
  if (ctx == nullptr) {
    return nullptr;
  }
  if (!has_kind(*ctx, timer_kind::probe_poll)) {
    return unknown_kind(*ctx, __func__);
  }
  wtm_leaf* leaf = new_leaf(tracks_shm_poll_request_root, ctx, __func__);
  if (leaf != nullptr) {
    OT_TRACE_DETAIL("new leaf timer created");
  }
  return leaf;
}

int set_ot_wait_timer(wtm_leaf* leaf) noexcept {
  OT_TRACE_ENTRY();
  return start(leaf, 0, 20'000'000);
}

int set_ot_nfn_timer(wtm_leaf* leaf) noexcept {
  OT_TRACE_ENTRY();
  return start(leaf, 0, 100'000'000);
}

int set_ot_shm_poll_wait_timer(wtm_leaf* leaf) noexcept {
  OT_TRACE_ENTRY();
  return start(leaf, 2, 0);
}

int set_ot_wait_delay_timer(wtm_leaf* leaf, std::uint32_t seconds, ot_timer_ctx* ctx) noexcept {
  OT_TRACE_ENTRY();
  if (leaf == nullptr) {
    return invalid_argument;
  }
  wtm_timer_leaf_set_context(leaf, ctx);
  return start(leaf, seconds, 0);
}

ot_timer_ctx* get_timer_ctx(wtm_leaf* leaf) noexcept {
  OT_TRACE_ENTRY();
  return leaf == nullptr ? nullptr : static_cast<ot_timer_ctx*>(wtm_timer_leaf_get_context(leaf));
}

void clear_ctx_ot_timer(wtm_leaf* leaf) noexcept {
  OT_TRACE_ENTRY();
  if (leaf != nullptr) {
    delete static_cast<ot_timer_ctx*>(wtm_timer_leaf_get_context(leaf));
  }
}

void stop_ot_timer(wtm_leaf* leaf) noexcept {
  OT_TRACE_ENTRY();
  if (leaf != nullptr) {
    wtm_timer_leaf_stop(leaf);
  }
}

void release_ot_timer(wtm_leaf* leaf) noexcept {
  if (leaf == nullptr) {
    return;
  }
  if (wtm_timer_leaf_running(leaf)) {
    outliving += wtm_timer_leaf_get_mark(leaf) ? 0U : 1U;
    wtm_timer_leaf_set_mark(leaf, true);
    return;
  }
  clear_ctx_ot_timer(leaf);
  wtm_timer_leaf_free(leaf);
}

bool drop_outliving_timers(const char* name) noexcept {
  const std::uint32_t before = outliving;
  outliving_name = name;
  do {
    outliving_leaf = nullptr;
    if (outliving != 0) {
      wtm_timer_tree_walk(timer_tree, find_outliving);
    }
    if (outliving_leaf != nullptr) {
      wtm_timer_leaf_stop(outliving_leaf);
      free_outliving(outliving_leaf);
    }
  } while (outliving_leaf != nullptr);
  return outliving != before;
}

}  // namespace ot
