// wtm_timer_: managed timers. All leaves hang in one tree; when the earliest is due the tree raises
// its asynchronous event once, and the owner drains what has expired. Suspending the machine does
// not lengthen a delay. One thread, that of the event manager.
#pragma once

#include <cstdint>

#include "platform/evm.h"

namespace ot {

struct wtm_tree;
struct wtm_parent;
struct wtm_leaf;

// Null when there is no memory. Freeing a tree frees its parents and leaves, never their contexts.
wtm_tree* wtm_timer_tree_new(const evm_sigevent& event, std::uint32_t flags) noexcept;
void wtm_timer_tree_free(wtm_tree* tree) noexcept;

// A group of leaves. Null when there is no memory.
wtm_parent* wtm_timer_parent_new(wtm_tree* tree, std::uint32_t flags) noexcept;

// Lets leaves of the group that are started from here on share wake-ups: each is due at the last
// whole multiple of `step_ns` since boot before the end of its time, unless that is over already.
// So none is late, the first expiry is less than a step early, and a leaf that is started again for
// whole steps at each expiry keeps its rhythm. 0, as at first: each is due on its own.
void wtm_timer_parent_align(wtm_parent* parent, std::uint64_t step_ns) noexcept;

// A stopped leaf. Null when there is no memory. The context is the caller's; the tree keeps only
// the pointer.
wtm_leaf* wtm_timer_leaf_new(wtm_tree* tree, wtm_parent* parent, std::uint16_t type,
                             void* context) noexcept;
// Stops and frees the leaf.
void wtm_timer_leaf_free(wtm_leaf* leaf) noexcept;

// Starts the leaf; a running one starts anew. Never fails for lack of memory.
int wtm_timer_leaf_start(wtm_leaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds) noexcept;
// Also takes an expired leaf off the list of expired ones.
void wtm_timer_leaf_stop(wtm_leaf* leaf) noexcept;

std::uint16_t wtm_timer_leaf_get_type(const wtm_leaf* leaf) noexcept;
void* wtm_timer_leaf_get_context(const wtm_leaf* leaf) noexcept;
void wtm_timer_leaf_set_context(wtm_leaf* leaf, void* context) noexcept;

// True from the start until the stop, an expiry that was not drained yet included.
bool wtm_timer_leaf_running(const wtm_leaf* leaf) noexcept;
// Whole seconds left, rounded up; 0 when not running or expired.
std::uint32_t wtm_timer_leaf_remaining(const wtm_leaf* leaf) noexcept;
// The same in milliseconds.
std::uint64_t wtm_timer_leaf_remaining_ms(const wtm_leaf* leaf) noexcept;

// A mark for the owner's use, false at first.
void wtm_timer_leaf_set_mark(wtm_leaf* leaf, bool mark) noexcept;
bool wtm_timer_leaf_get_mark(const wtm_leaf* leaf) noexcept;

// Whether any started leaf is due, and the one that was due first (leaves due at the same instant:
// the one started first). Both look at the clock anew.
bool wtm_timer_tree_expired(wtm_tree* tree) noexcept;
wtm_leaf* wtm_timer_tree_first_expired(wtm_tree* tree) noexcept;

// Calls `visit` for every leaf, started or not. It may not free leaves.
void wtm_timer_tree_walk(wtm_tree* tree, void (*visit)(wtm_leaf* leaf)) noexcept;

}  // namespace ot
