// Making histories of many lists. Their tracks are numbered so that the table's walk meets each
// list before the next one of a chain, which is the worst order, after it, or as chance has it.
#include <algorithm>
#include <array>
#include <numeric>
#include <random>

#include "tests/unit/lists/cases.h"

namespace ot::test {
namespace {

enum class chain_order { worst, best, by_chance };

class large_maker {
 public:
  large_maker(std::uint64_t which, std::uint32_t buckets)
      : random_(which),
        buckets_(buckets),
        lists_(10 + below(50)),
        tracks_(lists_ + 5 + below(60)),
        types_(lists_) {
    constexpr std::array<std::uint32_t, 4> all = {3, 4, 7, 8};
    const std::uint32_t only = below(8) < 4 ? all[below(4)] : 0;
    for (std::uint32_t& type : types_) type = only != 0 ? only : all[below(4)];
  }

  history make() {
    make_leaves();
    make_lists();
    wait(60);
    for (std::uint32_t round = 0; round < 6; ++round) change();
    wait(60);
    wait(5000);
    return std::move(steps_);
  }

 private:
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  std::uint32_t leaf() { return lists_ + below(tracks_ - lists_); }
  void wait(std::uint32_t milliseconds) {
    steps_.push_back({.kind = step_kind::wait, .a = milliseconds});
  }

  void make_leaves() {
    for (std::uint32_t each = lists_; each < tracks_; ++each) {
      if (below(10) == 0) continue;
      const std::uint32_t delay = below(10) == 0 ? 1 : 0;
      steps_.push_back({step_kind::delays, each, 0, 0, delay, delay});
      steps_.push_back({step_kind::report, each, 0, 0, 1 + below(2)});
    }
  }

  // The lists in the order of the chain: each has the next one as its member.
  std::vector<std::uint32_t> chain() {
    std::vector<std::uint32_t> lists(lists_);
    std::iota(lists.begin(), lists.end(), 0U);
    std::shuffle(lists.begin(), lists.end(), random_);
    const auto order = static_cast<chain_order>(below(3));
    if (order != chain_order::by_chance) {
      std::stable_sort(lists.begin(), lists.end(), [this](std::uint32_t a, std::uint32_t b) {
        return bucket_of(step_name(a), buckets_) < bucket_of(step_name(b), buckets_);
      });
    }
    if (order == chain_order::best) std::reverse(lists.begin(), lists.end());
    return lists;
  }

  void add_member(std::uint32_t list, std::uint32_t member) {
    const std::uint32_t value = types_[list] < 7 ? std::uint32_t{below(6) == 0} : below(4);
    steps_.push_back({step_kind::member, list, member, types_[list], value, 0});
  }

  void add_limits(std::uint32_t list) {
    if (types_[list] < 7) return;
    const std::uint32_t down = below(4);
    steps_.push_back({step_kind::limits, list, 0, types_[list], down + 1 + below(100), down});
  }

  // Some chains are closed to cycles, some lists wait for several others.
  void make_lists() {
    const std::vector<std::uint32_t> lists = chain();
    const bool closed = below(3) == 0;
    for (std::size_t at = 0; at < lists.size(); ++at) {
      const std::uint32_t list = lists[at];
      add_limits(list);
      const std::uint32_t wide = below(12) == 0 ? below(200) : below(6);
      for (std::uint32_t i = 0; i < wide / 2; ++i) add_member(list, any_plain());
      if (at + 1 < lists.size() || closed) add_member(list, lists[(at + 1) % lists.size()]);
      if (below(5) == 0) add_member(list, below(lists_));
      for (std::uint32_t i = wide / 2; i < wide; ++i) add_member(list, any_plain());
    }
  }

  // A track that is no list, or a name that no track has.
  std::uint32_t any_plain() { return below(8) == 0 ? tracks_ + below(100) : leaf(); }

  void change() {
    for (std::uint32_t i = 0; i < 1 + below(10); ++i) {
      steps_.push_back({step_kind::report, leaf(), 0, 0, 1 + below(2)});
    }
    const std::uint32_t list = below(lists_);
    switch (below(6)) {
      case 0:
        add_member(list, below(lists_));
        break;
      case 1:
        steps_.push_back({step_kind::drop_member, list, below(lists_), types_[list]});
        break;
      case 2:
        steps_.push_back({step_kind::erase, below(tracks_)});
        break;
      case 3:
        steps_.push_back({step_kind::delays, below(tracks_), 0, 0, below(2), below(2)});
        break;
      default:
        break;
    }
    wait(below(3) == 0 ? 1000 : 25);
  }

  std::mt19937_64 random_;
  std::uint32_t buckets_;
  std::uint32_t lists_;  // the first of the tracks
  std::uint32_t tracks_;
  std::vector<std::uint32_t> types_;
  history steps_;
};

}  // namespace

history make_large_history(std::uint64_t which, std::uint32_t buckets) {
  return large_maker(which, buckets).make();
}

}  // namespace ot::test
