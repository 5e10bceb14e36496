// What seems likely is tried out, and then everything that is smaller, as far as that is quick.
#include "tools/trackctl/explain/remedy.h"

#include <vector>

#include "tools/trackctl/explain/needs.h"
#include "tools/trackctl/explain/trial.h"

namespace ot::trackctl::explain {
namespace {

constexpr std::size_t most_to_compute = 5'000'000;

using turns = std::vector<trial::turn>;

changes changes_of(const trial& tried, const turns& from) {
  changes found;
  for (const trial::turn& each : from) {
    found.emplace(tried.objects()[each.object], each.up);
  }
  return found;
}

// As they turn objects; none when two want different states of one, or when they do not do.
std::optional<changes> tried_out(trial& tried, const std::optional<changes>& likely) {
  if (!likely) {
    return {};
  }
  turns all;
  changes named;
  for (const auto& [track, up] : *likely) {
    const std::size_t object = tried.object_of(track);
    bool fresh = true;
    for (const trial::turn& each : all) {
      if (each.object == object && each.up != up) {
        return {};
      }
      fresh = fresh && each.object != object;
    }
    if (fresh) {
      all.push_back({object, up});
      named.emplace(track, up);
    }
  }
  return tried.is_up_with(all) ? std::optional(named) : std::nullopt;
}

class search {
 public:
  explicit search(trial& tried) : tried_(tried) {
    for (std::size_t object = 0; object < tried.objects().size(); ++object) {
      for (const bool up : {true, false}) {
        if (tried.can_turn(object, up)) {
          possible_.push_back({object, up});
        }
      }
    }
  }

  // The fewest turns, fewer than `below`; none when there are none, or when it takes too long.
  std::optional<changes> fewest(std::size_t below) {
    for (std::size_t count = 0; count < below && count <= tried_.objects().size(); ++count) {
      if (choose(0, count)) {
        return changes_of(tried_, chosen_);
      }
      if (computed_ > most_to_compute) {
        break;
      }
    }
    return {};
  }

 private:
  // Whether `count` more, from that one on, do.
  bool choose(std::size_t from, std::size_t count) {
    if (count == 0) {
      computed_ += tried_.cost();
      return tried_.is_up_with(chosen_);
    }
    for (std::size_t at = from; at + count <= possible_.size() && computed_ <= most_to_compute;
         ++at) {
      if (!chosen_.empty() && chosen_.back().object == possible_[at].object) {
        continue;
      }
      chosen_.push_back(possible_[at]);
      if (choose(at + 1, count - 1)) {
        return true;
      }
      chosen_.pop_back();
    }
    return false;
  }

  trial& tried_;
  turns possible_;  // those of one object stand together
  turns chosen_;
  std::size_t computed_ = 0;
};

}  // namespace

std::optional<changes> find_remedy(const site& tracks, const std::string& list) {
  trial tried(tracks, list);
  if (tried.cyclic()) {
    return {};
  }
  const std::optional<changes> likely = tried_out(tried, likely_remedy(tracks, list));
  const std::optional<changes> smaller =
      search(tried).fewest(likely ? likely->size() : tried.objects().size() + 1);
  return smaller ? smaller : likely;
}

}  // namespace ot::trackctl::explain
