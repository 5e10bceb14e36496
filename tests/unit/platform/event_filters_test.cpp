// Which subscribers want an event.
#include "platform/common/event_filters.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/memory/alloc_faults.h"

namespace ot {
namespace {

evdl_track_record record(std::string_view name, std::uint32_t state, bool any_state = false) {
  return {static_cast<std::uint32_t>(name.size()), any_state ? 1U : 0U, fixed_text<32>(name),
          state};
}

int match(const void* subscription, const void* event) {
  const auto& wanted = *static_cast<const evdl_track_record*>(subscription);
  const auto& given = *static_cast<const evdl_track_record*>(event);
  const bool same = wanted.name_length == given.name_length && wanted.name == given.name &&
                    (wanted.any_state != 0 || wanted.state == given.state);
  return same ? 1 : 0;
}

int never(const void*, const void*) {
  return 0;
}

const event_subscribers nobody;

event_subscribers wanted_by(const event_filters& filters, const evdl_track_record& event) {
  return filters.wanted_by(event, match);
}

TEST(event_filters, nobody_wants_anything_at_first) {
  EXPECT_EQ(wanted_by({}, record("t", 1)), nobody);
}

TEST(event_filters, a_subscriber_without_filters_gets_everything) {
  event_filters filters;
  const unsigned last = event_subscriber_limit - 1;
  ASSERT_EQ(filters.add(last, {}), 0);
  EXPECT_EQ(filters.wanted_by(record("t", 1), never), event_subscribers{last});
  filters.remove(last);
  EXPECT_EQ(wanted_by(filters, record("t", 1)), nobody);
}

TEST(event_filters, the_match_function_has_the_final_say) {
  event_filters filters;
  const std::vector filter{record("t", 0, true)};
  ASSERT_EQ(filters.add(0, filter), 0);
  EXPECT_EQ(wanted_by(filters, record("t", 2)), event_subscribers{0});
  EXPECT_EQ(filters.wanted_by(record("t", 2), never), nobody);
}

TEST(event_filters, name_and_state_select) {
  event_filters filters;
  const std::vector one{record("a", 1), record("b", 0, true)};
  const std::vector two{record("a", 2), record("a", 0, true), record("A", 1)};
  ASSERT_EQ(filters.add(0, one), 0);
  ASSERT_EQ(filters.add(5, two), 0);
  EXPECT_EQ(wanted_by(filters, record("a", 1)), (event_subscribers{0, 5}));
  EXPECT_EQ(wanted_by(filters, record("a", 2)), event_subscribers{5})
      << "two filters, one subscriber";
  EXPECT_EQ(wanted_by(filters, record("A", 1)), event_subscribers{5});
  EXPECT_EQ(wanted_by(filters, record("A", 2)), nobody);
  EXPECT_EQ(wanted_by(filters, record("b", 2)), event_subscribers{0});
  EXPECT_EQ(wanted_by(filters, record("ab", 1)), nobody);
  filters.remove(5);
  EXPECT_EQ(wanted_by(filters, record("a", 1)), event_subscribers{0});
}

TEST(event_filters, names_cut_alike_are_distinguished_by_their_length) {
  const std::string shorter(33, 'x');
  const std::string longer(34, 'x');
  event_filters filters;
  const std::vector filter{record(shorter, 0, true)};
  ASSERT_EQ(filters.add(0, filter), 0);
  EXPECT_EQ(wanted_by(filters, record(shorter, 1)), event_subscribers{0});
  EXPECT_EQ(wanted_by(filters, record(longer, 1)), nobody);
}

TEST(event_filters, a_subscription_without_memory_enters_nothing) {
  event_filters filters;
  const std::vector filter{record("t", 0, true)};
  {
    const alloc_faults none_left(0, alloc_fault_mode::onward);
    EXPECT_EQ(filters.add(3, filter), 12);
    EXPECT_EQ(filters.add(4, {}), 0) << "wanting everything needs no memory";
  }
  EXPECT_EQ(wanted_by(filters, record("t", 1)), event_subscribers{4});
}

TEST(event_filters, all_subscribers_together_have_a_limit) {
  event_filters filters;
  const std::vector<evdl_track_record> many(event_filters_total - 1, record("t", 0, true));
  const std::vector<evdl_track_record> two(2, record("u", 0, true));
  ASSERT_EQ(filters.add(0, many), 0);
  EXPECT_EQ(filters.add(1, two), EUSERS);
  EXPECT_EQ(wanted_by(filters, record("u", 1)), nobody);
  filters.remove(0);
  EXPECT_EQ(filters.add(1, two), 0);
}

TEST(event_filters, thousands_of_filters_find_each_name) {
  event_filters filters;
  constexpr unsigned subscribers = 64;
  for (unsigned number = 0; number < subscribers; ++number) {
    std::vector<evdl_track_record> own;
    for (unsigned i = 0; i < 500; ++i) {
      own.push_back(record("t" + std::to_string(number * 7 + i), 0, true));
    }
    ASSERT_EQ(filters.add(number, own), 0);
  }
  for (unsigned track = 0; track < 941; ++track) {
    event_subscribers expected;
    for (unsigned number = 0; number < subscribers; ++number) {
      if (track >= number * 7 && track < number * 7 + 500) {
        expected.add(number);
      }
    }
    ASSERT_EQ(wanted_by(filters, record("t" + std::to_string(track), 1)), expected) << track;
  }
}

}  // namespace
}  // namespace ot
