// A list's members, as the rules (list_evaluation.cpp) go through them in the calculation that
// runs. Main thread.
#pragma once

#include "core/track.h"
#include "state/track_index.h"

namespace ot {

// Begins with the first member, or with the one that the list has waited for in this calculation:
// then what was judged before it stands in the list's progress, which starts from zero otherwise.
class members_to_judge {
 public:
  explicit members_to_judge(ot_track& list) noexcept;

  [[nodiscard]] bool over() const noexcept { return member_ == nullptr; }
  [[nodiscard]] const list_member& member() const noexcept { return *member_; }
  // The member's track, or null.
  [[nodiscard]] const ot_track* track() const noexcept { return track_; }

  void next() noexcept {
    member_ = member_->next;
    find_track();
  }

  // The list has to wait, for this member's track is a list that is not computed yet.
  void wait() noexcept;

 private:
  void find_track() noexcept {
    if (member_ != nullptr) {
      track_ = index_ != nullptr ? index_->find(member_->name)
                                 : hash_db_get_track_item(member_->name.c_str());
    }
  }

  ot_track& list_;
  const track_index* index_;
  list_member* member_;
  ot_track* track_ = nullptr;
};

}  // namespace ot
