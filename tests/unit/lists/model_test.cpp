// The service against the model of its rules, over many random histories. OT_LIST_HISTORIES sets
// how many (else 100,000 in soak_tests, some of them in unit_tests) and OT_LIST_HISTORY_FIRST the
// first one's number, so that a failing history can be run alone.
#include <algorithm>
#include <cstdlib>

#include "tests/unit/lists/cases.h"
#include "tests/unit/lists/fixture.h"

namespace ot::test {
namespace {

#if defined(OT_SOAK)
constexpr std::uint64_t default_histories = 100'000;
constexpr std::uint64_t large_histories = 2'000;
#elif defined(OT_SANITIZED)
constexpr std::uint64_t default_histories = 10'000;
constexpr std::uint64_t large_histories = 40;
#else
constexpr std::uint64_t default_histories = 4'000;
constexpr std::uint64_t large_histories = 20;
#endif

std::uint64_t number_from(const char* variable, std::uint64_t otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

template <typename Model>
std::string difference(const history& steps) {
  Model model(tracks_table.bucket_count);
  return run_history(steps, model);
}

// Empty, or what went wrong with the smallest history that still shows it.
template <typename Model>
std::string check(std::uint64_t which, const history& steps) {
  if (difference<Model>(steps).empty()) return {};
  const history small =
      shrink(steps, [](const history& shorter) { return !difference<Model>(shorter).empty(); });
  return "history " + std::to_string(which) + ":\n" + text_of(small) + difference<Model>(small);
}

// A list that is up also above its up limit: what the service must not be.
class endless_model : public list_model {
 public:
  using list_model::list_model;

 protected:
  bool between_limits(const model_track& list, std::uint32_t value) const override {
    return list.down_limit <= value;
  }
};

class list_histories : public list_fixture {
 protected:
  // Checks that many of the histories that `make` makes.
  template <typename Make>
  static void check_all(std::uint64_t count, Make&& make) {
    const std::uint64_t first = number_from("OT_LIST_HISTORY_FIRST", 0);
    const std::uint64_t last = first + number_from("OT_LIST_HISTORIES", count);
    for (std::uint64_t which = first; which < last; ++which) {
      ASSERT_EQ(check<list_model>(which, make(which)), "");
      if (which % 1000 == 0) ledger_control_take_notifications();
      field::take_traces();
    }
  }
  static history make_large(std::uint64_t which) {
    return make_large_history(which, tracks_table.bucket_count);
  }
};

TEST_F(list_histories, agrees_with_the_service) {
  check_all(default_histories, make_history);
}

TEST_F(list_histories, of_many_lists_agree_with_the_service) {
  check_all(large_histories, make_large);
}

// The trace shows every pass over every track.
TEST_F(list_histories, agree_with_a_service_that_traces) {
  trace();
  check_all(default_histories / 40, make_history);
  check_all(large_histories / 5, make_large);
}

TEST_F(list_histories, a_departure_from_the_rules_is_found_and_made_small) {
  std::string found;
  for (std::uint64_t which = 0; found.empty() && which < 1000; ++which) {
    found = check<endless_model>(which, make_history(which));
  }
  EXPECT_THAT(found, ::testing::HasSubstr("gets member"));
  EXPECT_THAT(found, ::testing::HasSubstr("should be"));
  EXPECT_LE(std::count(found.begin(), found.end(), '\n'), 8) << found;
}

}  // namespace
}  // namespace ot::test
