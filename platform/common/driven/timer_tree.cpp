// Managed timers: the started leaves stand in one heap and one platform alarm at the earliest of
// them. The heap's room is made when a leaf is created, so starting one cannot fail. An expired
// leaf simply stays in the heap until its owner stops, restarts or frees it.
#include "platform/timer_tree.h"

#include <algorithm>
#include <memory>
#include <new>

#include "platform/common/timer_driver.h"
#include "platform/common/timer_heap.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t ns_per_second = 1'000'000'000;

struct free_alarm {
  void operator()(timer_alarm* alarm) const noexcept { timer_alarm_free(alarm); }
};

}  // namespace

struct wtm_parent {
  wtm_parent* next = nullptr;  // in the tree's list
  wtm_tree* tree = nullptr;
  std::uint64_t step_ns = 0;  // what its leaves are aligned to; 0: to nothing
};

struct wtm_leaf : timer_node {
  wtm_parent* parent = nullptr;
  wtm_leaf* next = nullptr;   // in the tree's list of all leaves
  wtm_leaf** link = nullptr;  // what points to this leaf there
  void* context = nullptr;
  std::uint16_t type = 0;
  bool mark = false;
};

struct wtm_tree {
  std::unique_ptr<timer_alarm, free_alarm> alarm;
  std::uint64_t alarm_due_ns = 0;
  timer_heap heap;
  wtm_parent* parents = nullptr;
  wtm_leaf* leaves = nullptr;
  std::size_t leaf_count = 0;
};

namespace {

void move_alarm(wtm_tree& tree) noexcept {
  const timer_node* first = tree.heap.first();
  const std::uint64_t due = first == nullptr ? 0 : first->due_ns;
  if (due != tree.alarm_due_ns) {
    tree.alarm_due_ns = due;
    timer_alarm_set(tree.alarm.get(), due);
  }
}

// When a leaf whose time ends at `end_ns` is due.
std::uint64_t due_time(const wtm_parent& parent, std::uint64_t end_ns,
                       std::uint64_t now_ns) noexcept {
  if (parent.step_ns != 0) {
    const std::uint64_t aligned_ns = end_ns - end_ns % parent.step_ns;
    end_ns = aligned_ns > now_ns ? aligned_ns : end_ns;
  }
  return std::max<std::uint64_t>(end_ns, 1);  // 0 is "never" to the alarm
}

template <typename T>
void delete_list(T* head) noexcept {
  while (head != nullptr) {
    T* next = head->next;
    delete head;
    head = next;
  }
}

}  // namespace

wtm_tree* wtm_timer_tree_new(const evm_sigevent& event, std::uint32_t /*flags*/) noexcept {
  std::unique_ptr<wtm_tree> tree(new (std::nothrow) wtm_tree);
  if (tree == nullptr) {
    return nullptr;
  }
  tree->alarm.reset(timer_alarm_new(event));
  return tree->alarm == nullptr ? nullptr : tree.release();
}

void wtm_timer_tree_free(wtm_tree* tree) noexcept {
  if (tree != nullptr) {
    delete_list(tree->leaves);
    delete_list(tree->parents);
    delete tree;
  }
}

wtm_parent* wtm_timer_parent_new(wtm_tree* tree, std::uint32_t /*flags*/) noexcept {
  wtm_parent* parent = new (std::nothrow) wtm_parent{tree->parents, tree};
  if (parent != nullptr) {
    tree->parents = parent;
  }
  return parent;
}

void wtm_timer_parent_align(wtm_parent* parent, std::uint64_t step_ns) noexcept {
  parent->step_ns = step_ns;
}

wtm_leaf* wtm_timer_leaf_new(wtm_tree* tree, wtm_parent* parent, std::uint16_t type,
                             void* context) noexcept {
  if (!tree->heap.reserve(tree->leaf_count + 1)) {
    return nullptr;
  }
  wtm_leaf* leaf = new (std::nothrow) wtm_leaf;
  if (leaf == nullptr) {
    return nullptr;
  }
  leaf->parent = parent;
  leaf->type = type;
  leaf->context = context;
  leaf->next = tree->leaves;
  leaf->link = &tree->leaves;
  if (leaf->next != nullptr) {
    leaf->next->link = &leaf->next;
  }
  tree->leaves = leaf;
  ++tree->leaf_count;
  return leaf;
}

void wtm_timer_leaf_free(wtm_leaf* leaf) noexcept {
  if (leaf == nullptr) {
    return;
  }
  wtm_timer_leaf_stop(leaf);
  *leaf->link = leaf->next;
  if (leaf->next != nullptr) {
    leaf->next->link = leaf->link;
  }
  --leaf->parent->tree->leaf_count;
  delete leaf;
}

int wtm_timer_leaf_start(wtm_leaf* leaf, std::uint32_t seconds,
                         std::uint32_t nanoseconds) noexcept {
  if (leaf == nullptr) {
    return invalid_argument;
  }
  wtm_tree& tree = *leaf->parent->tree;
  if (wtm_timer_leaf_running(leaf)) {
    tree.heap.remove(*leaf);
  }
  const std::uint64_t now_ns = timer_now_ns();
  const std::uint64_t end_ns = now_ns + seconds * ns_per_second + nanoseconds;
  tree.heap.insert(*leaf, due_time(*leaf->parent, end_ns, now_ns));
  move_alarm(tree);
  return status_ok;
}

void wtm_timer_leaf_stop(wtm_leaf* leaf) noexcept {
  if (wtm_timer_leaf_running(leaf)) {
    wtm_tree& tree = *leaf->parent->tree;
    tree.heap.remove(*leaf);
    move_alarm(tree);
  }
}

std::uint16_t wtm_timer_leaf_get_type(const wtm_leaf* leaf) noexcept {
  return leaf->type;
}

void* wtm_timer_leaf_get_context(const wtm_leaf* leaf) noexcept {
  return leaf->context;
}

void wtm_timer_leaf_set_context(wtm_leaf* leaf, void* context) noexcept {
  leaf->context = context;
}

bool wtm_timer_leaf_running(const wtm_leaf* leaf) noexcept {
  return leaf->place != timer_node::not_in_heap;
}

namespace {

// What is left, in units of so many nanoseconds, rounded up.
std::uint64_t remaining_in(const wtm_leaf* leaf, std::uint64_t unit_ns) noexcept {
  const std::uint64_t now = timer_now_ns();
  if (!wtm_timer_leaf_running(leaf) || leaf->due_ns <= now) {
    return 0;
  }
  return (leaf->due_ns - now + unit_ns - 1) / unit_ns;
}

}  // namespace

std::uint32_t wtm_timer_leaf_remaining(const wtm_leaf* leaf) noexcept {
  return static_cast<std::uint32_t>(remaining_in(leaf, ns_per_second));
}

std::uint64_t wtm_timer_leaf_remaining_ms(const wtm_leaf* leaf) noexcept {
  return remaining_in(leaf, 1'000'000);
}

void wtm_timer_leaf_set_mark(wtm_leaf* leaf, bool mark) noexcept {
  leaf->mark = mark;
}

bool wtm_timer_leaf_get_mark(const wtm_leaf* leaf) noexcept {
  return leaf->mark;
}

bool wtm_timer_tree_expired(wtm_tree* tree) noexcept {
  return wtm_timer_tree_first_expired(tree) != nullptr;
}

wtm_leaf* wtm_timer_tree_first_expired(wtm_tree* tree) noexcept {
  timer_node* first = tree->heap.first();
  const bool due = first != nullptr && first->due_ns <= timer_now_ns();
  return due ? static_cast<wtm_leaf*>(first) : nullptr;
}

void wtm_timer_tree_walk(wtm_tree* tree, void (*visit)(wtm_leaf* leaf)) noexcept {
  for (wtm_leaf* leaf = tree->leaves; leaf != nullptr; leaf = leaf->next) {
    visit(leaf);
  }
}

}  // namespace ot
