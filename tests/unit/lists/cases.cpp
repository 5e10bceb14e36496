// Making and printing histories.
#include <array>
#include <random>

#include "tests/unit/lists/cases.h"

namespace ot::test {
namespace {

constexpr std::array<std::uint32_t, 4> list_types = {3, 4, 7, 8};
constexpr std::array<std::uint32_t, 8> weights = {0,  1,          2,          3,
                                                  50, 0x7fffffff, 0x80000000, 0xffffffff};
constexpr std::array<std::uint32_t, 9> limit_values = {0,   1,          2,          33,        50,
                                                       100, 0x7fffffff, 0x80000000, 0xffffffff};
constexpr std::array<std::uint32_t, 5> waits = {5, 19, 25, 100, 1000};

class maker {
 public:
  explicit maker(std::uint64_t which) : random_(which), tracks_(3 + below(6)) {
    // Most histories stay within one type a track, as configuration does.
    for (std::uint32_t& type : types_) type = pick(list_types);
    mixes_types_ = below(8) == 0;
    lists_ = 1 + below(tracks_ - 1);
  }

  history make() {
    history steps = make_leaves();
    const std::size_t length = steps.size() + 6 + below(25);
    while (steps.size() < length) steps.push_back(make_step());
    steps.push_back({.kind = step_kind::wait, .a = 60});
    steps.push_back({.kind = step_kind::wait, .a = 5000});
    return steps;
  }

 private:
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  template <std::size_t N>
  std::uint32_t pick(const std::array<std::uint32_t, N>& values) {
    return values[below(N)];
  }

  // Most tracks that are no lists exist from the start and have a state.
  history make_leaves() {
    history steps;
    for (std::uint32_t leaf = lists_; leaf < tracks_; ++leaf) {
      if (below(4) == 0) continue;
      const std::uint32_t delay = below(4) == 0 ? 1 + below(2) : 0;
      steps.push_back({step_kind::delays, leaf, 0, 0, delay, delay});
      steps.push_back({step_kind::report, leaf, 0, 0, 1 + below(2)});
    }
    return steps;
  }

  step make_step() {
    const std::uint32_t list = below(lists_);
    const std::uint32_t leaf = lists_ + below(tracks_ - lists_);
    const std::uint32_t type = mixes_types_ ? pick(list_types) : types_[list];
    const std::uint32_t dice = below(100);
    if (dice < 30)
      return {step_kind::member, list, below(tracks_ + 1), type, weight(type), hides()};
    if (dice < 36) return {step_kind::drop_member, list, below(tracks_), type};
    if (dice < 44 && type > 4)
      return {step_kind::limits, list, 0, type, pick(limit_values), pick(limit_values)};
    if (dice < 50) return {step_kind::delays, below(tracks_), 0, 0, below(3), below(3)};
    if (dice < 53) return {step_kind::erase, below(tracks_)};
    if (dice < 78) return {step_kind::report, leaf, 0, 0, below(8) == 0 ? 0 : 1 + below(2)};
    return {step_kind::wait, 0, 0, 0, pick(waits)};
  }
  std::uint32_t weight(std::uint32_t type) { return type < 7 ? below(2) : pick(weights); }
  std::uint32_t hides() { return below(20) == 0 ? 1 : 0; }

  std::mt19937_64 random_;
  std::uint32_t tracks_;
  std::uint32_t lists_ = 1;
  bool mixes_types_ = false;
  std::array<std::uint32_t, 16> types_{};
};

std::string number(std::uint32_t value) {
  return std::to_string(value);
}

std::string line_of(const step& s) {
  const std::string track = step_name(s.track);
  const std::string through = " through type " + number(s.type);
  switch (s.kind) {
    case step_kind::report:
      return track + " reports state " + number(s.a);
    case step_kind::member:
      return track + " gets member " + step_name(s.other) + " = " + number(s.a) + through +
             (s.b == 0 ? "" : ", the old value hidden");
    case step_kind::drop_member:
      return track + " loses member " + step_name(s.other) + through;
    case step_kind::limits:
      return track + " gets limits up " + number(s.a) + " down " + number(s.b) + through;
    case step_kind::delays:
      return track + " gets delay up " + number(s.a) + " s, delay down " + number(s.b) + " s";
    case step_kind::erase:
      return track + " is deleted";
    case step_kind::wait:
      return number(s.a) + " ms pass";
  }
  return {};
}

}  // namespace

std::string step_name(std::uint32_t track) {
  return "t" + number(track);
}

history make_history(std::uint64_t which) {
  return maker(which).make();
}

std::string text_of(const history& steps) {
  std::string text;
  for (const step& s : steps) text += line_of(s) + "\n";
  return text;
}

}  // namespace ot::test
