// The passes of a calculation. Lists may contain lists, in any order of the table. In each pass
// over the table a list is computed unless one of its list members is not computed yet; so a chain
// of lists needs at most as many passes as there are lists, and a pass that computes nothing is the
// last: what is left is in a cycle or behind one.
//
// A pass over everything would cost a chain in the worst order a million looks at lists that still
// wait. But nothing that a waiting list has judged changes before the calculation ends: only the
// list that it waits for can let it go on. So a list that has to wait is put down with that one,
// and is due again, at its own place in the order, when that one is computed: in the same pass if
// its place is behind, else in the next. Each member is judged about once, by an index of the
// tracks' names. What is computed, and in which order, is that of the passes.
//
// Without memory for that, and as long as the trace shows passes of a reasonable size, every pass
// goes over everything.

#include "state/list_passes.h"

#include <array>
#include <new>
#include <utility>
#include <vector>

#include "core/debug.h"
#include "core/track_kind.h"
#include "platform/status.h"
#include "state/list_evaluation.h"
#include "state/place_set.h"

namespace ot {
namespace {

// How many looks at tracks are traced one by one, in all passes together.
constexpr std::uint64_t most_traced_looks = 10'000;

// The rule of each type of list.
struct list_rules {
  std::array<int (*)(ot_track*, std::uint32_t*), 16> by_type{};

  list_rules() noexcept {
    for (const track_kind* kind : track_kinds()) {
      for (const track_kind_type& row : kind->types) {
        if (is_list_type(row.type)) {
          by_type[static_cast<std::size_t>(row.type)] = kind->calculate;
        }
      }
    }
  }
};

class list_passes {
 public:
  list_passes() noexcept { running = this; }
  ~list_passes() { running = nullptr; }
  list_passes(const list_passes&) = delete;
  list_passes& operator=(const list_passes&) = delete;

  void run();

  // The one that runs, or null.
  static const list_passes* running;

  // Whether only what is due is looked at.
  [[nodiscard]] bool keeps_progress() const noexcept { return keeps_progress_; }
  [[nodiscard]] const track_index& index() const noexcept { return index_; }

 private:
  void mark_lists() noexcept;
  bool prepare() noexcept;
  int pass_over_due();
  int pass_over_all();
  int look_at(ot_track& track);
  void wake(ot_track& computed) noexcept;

  const list_rules rules_;
  std::uint32_t tracks_count_ = 0;
  std::uint32_t remaining_ = 0;
  bool keeps_progress_ = false;
  std::vector<ot_track*> tracks_;  // by place
  track_index index_;
  place_set due_;
  place_set due_next_;  // in the next pass
};

const list_passes* list_passes::running = nullptr;

// Null while no calculation runs that keeps the lists' progress.
const track_index* index_of_calculation() noexcept {
  const list_passes* running = list_passes::running;
  return running != nullptr && running->keeps_progress() ? &running->index() : nullptr;
}

// Marks every list as not computed, and counts them.
void list_passes::mark_lists() noexcept {
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    track->uncalculated = is_list_type(track->type) ? 1 : 0;
    track->progress = {};
    track->progress.place = tracks_count_++;
    remaining_ += track->uncalculated;
  }
  OT_TRACE_DETAIL("Timer_expired:Total tracks(list type): set to uncalced: %d",
                  static_cast<int>(remaining_));
}

// Everything is due in the first pass. False when every pass has to go over everything.
bool list_passes::prepare() noexcept {
  const std::uint64_t looks = std::uint64_t{remaining_} * tracks_count_;
  if (remaining_ == 0 || (ot_debug_on(ot_debug_detail) && looks <= most_traced_looks)) {
    return false;
  }
  try {
    tracks_.reserve(tracks_count_);
    for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
         track = hash_db_next_data<ot_track>(tracks_table)) {
      tracks_.push_back(track);
    }
    index_.make(tracks_);
    due_.make(tracks_count_);
    due_next_.make(tracks_count_);
  } catch (const std::bad_alloc&) {
    return false;
  }
  for (std::uint32_t place = 0; place < tracks_count_; ++place) {
    due_.add(place);
  }
  return true;
}

// Computes a list that is not computed yet, if it can be. Its publication's result.
int list_passes::look_at(ot_track& track) {
  OT_TRACE_DETAIL("Timer_expired:For track: %s", track.name.c_str());
  if (track.uncalculated == 0) {
    OT_TRACE_DETAIL("Timer_expired:skipping track: %s", track.name.c_str());
    return status_ok;
  }
  OT_TRACE_DETAIL("Timer_expired:computin track: %s", track.name.c_str());
  std::uint32_t done = 0;
  const int status = rules_.by_type[static_cast<std::size_t>(track.type)](&track, &done);
  if (status == status_ok && done == 1) {
    --remaining_;
    OT_TRACE_DETAIL("Timer_expired: num uncalced: %d", static_cast<int>(remaining_));
    wake(track);
  }
  return status;
}

void list_passes::wake(ot_track& computed) noexcept {
  const ot_track* list = std::exchange(computed.progress.first_waiting, nullptr);
  for (; list != nullptr; list = list->progress.next_waiting) {
    const std::uint32_t place = list->progress.place;
    (place > computed.progress.place ? due_ : due_next_).add(place);
  }
}

int list_passes::pass_over_due() {
  for (std::uint32_t place = 0; due_.take(&place);) {
    if (const int status = look_at(*tracks_[place]); status != status_ok) {
      return status;
    }
  }
  std::swap(due_, due_next_);
  return status_ok;
}

int list_passes::pass_over_all() {
  for (auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
       track = hash_db_next_data<ot_track>(tracks_table)) {
    if (const int status = look_at(*track); status != status_ok) {
      return status;
    }
  }
  return status_ok;
}

void list_passes::run() {
  mark_lists();
  keeps_progress_ = prepare();
  std::uint32_t max_loop = remaining_;
  for (std::uint32_t before = remaining_ + 1; remaining_ != 0 && remaining_ != before;) {
    before = remaining_;
    const int status = keeps_progress_ ? pass_over_due() : pass_over_all();
    if (status != status_ok) {
      return;
    }
    --max_loop;
    OT_TRACE_DETAIL("Timer_expired: max_loop: %d", static_cast<int>(max_loop));
  }
  OT_TRACE_DETAIL("Timer_expired: After Initial max_loop: %d", static_cast<int>(max_loop));
  // What is left is in a cycle or behind one. It keeps its states and nothing is published for it.
}

}  // namespace

members_to_judge::members_to_judge(ot_track& list) noexcept
    : list_(list), index_(index_of_calculation()), member_(list.object.list.members) {
  list_progress& so_far = list.progress;
  if (index_ != nullptr && so_far.member != nullptr) {
    member_ = so_far.member;
    track_ = so_far.awaited;
    return;
  }
  so_far.sum = 0;
  so_far.count = 0;
  find_track();
}

void members_to_judge::wait() noexcept {
  if (index_ == nullptr) {
    return;
  }
  list_.progress.member = member_;
  list_.progress.awaited = track_;
  list_.progress.next_waiting = std::exchange(track_->progress.first_waiting, &list_);
  __builtin_prefetch(member_->next);  // what the list goes on with
}

void object_tracking_calc_tracks_state_after_timer_expired() {
  OT_TRACE_ENTRY();
  list_passes().run();
}

}  // namespace ot
