// The engine on virtual time with probes that end when the test says so.
#include "tools/qmond/engine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <utility>

#include "tests/qmond/table_fixture.h"

namespace ot::qmond {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t second = 1000000;

class qmond_engine : public qmond_table {
 protected:
  struct running_probe : probe {
    explicit running_probe(qmond_engine& of, std::uint32_t op) : test(of), id(op) {}
    ~running_probe() override { test.under_way_.erase(id); }
    [[nodiscard]] std::uint64_t begun_us() const noexcept override { return begun; }
    qmond_engine& test;
    std::uint32_t id;
    std::uint64_t begun = test.now_;
  };

  void SetUp() override {
    qmond_table::SetUp();
    engine_.emplace(path_, engine_hooks{.start =
                                            [this](const operation& what, probe_done done) {
                                              return start(what, std::move(done));
                                            },
                                        .now_us = [this] { return now_; },
                                        .wall_clock = [] { return 1U; }});
  }
  void TearDown() override {
    engine_.reset();
    qmond_table::TearDown();
  }

  started start(const operation& what, probe_done done) {
    starts_.emplace_back(what.id, now_);
    if (immediate_) {
      return {.running = nullptr, .code = *immediate_};
    }
    under_way_[what.id] = std::move(done);
    return {.running = std::make_unique<running_probe>(*this, what.id), .code = return_code::none};
  }

  // Lets the time pass until `when`, doing what falls due.
  void pass_until(std::uint64_t when) {
    while (engine_->next_due_us() && *engine_->next_due_us() <= when) {
      now_ = std::max(now_, *engine_->next_due_us());
      engine_->run_due();
    }
    now_ = when;
  }
  void answer(std::uint32_t id, return_code code) {
    const probe_done done = under_way_.at(id);
    done(code);
  }

  // What a reader finds; all zero words for an operation that is not running.
  statistics found(std::uint32_t id) {
    table_view view;
    statistics words{};
    EXPECT_EQ(view.open(path_), 0);
    (void)view.look_up(id, &words);
    return words;
  }
  std::uint32_t code(std::uint32_t id) { return found(id)[word_return_code]; }

  static operation every_second(std::uint32_t id) {
    operation made;
    made.id = id;
    made.host = "192.0.2.1";
    made.interval_ms = 1000;
    made.timeout_ms = 400;
    return made;
  }
  static std::vector<operation> many(std::uint32_t count) {
    std::vector<operation> made;
    for (std::uint32_t id = 0; id < count; ++id) {
      made.push_back(every_second(id));
    }
    return made;
  }

  std::uint64_t now_ = 1000 * second;
  std::optional<return_code> immediate_;
  std::map<std::uint32_t, probe_done> under_way_;
  std::vector<std::pair<std::uint32_t, std::uint64_t>> starts_;
  std::optional<engine> engine_;
};

TEST_F(qmond_engine, without_operations_nothing_is_due) {
  engine_->apply({});
  EXPECT_EQ(engine_->next_due_us(), std::nullopt);
}

TEST_F(qmond_engine, publishes_what_a_probe_came_to) {
  engine_->apply({every_second(0)});
  engine_->run_due();
  EXPECT_EQ(code(0), 0U);
  now_ += 12345;
  answer(0, return_code::ok);
  EXPECT_EQ(code(0), 1U);
  EXPECT_EQ(found(0)[word_response_time_us], 12345U);
  EXPECT_THAT(under_way_, IsEmpty());
}

TEST_F(qmond_engine, starts_keep_their_rhythm_however_long_probes_take) {
  engine_->apply({every_second(0)});
  const std::uint64_t begin = now_;
  for (int i = 0; i < 3; ++i) {
    pass_until(begin + static_cast<std::uint64_t>(i) * second + 100000);
    answer(0, return_code::ok);
  }
  EXPECT_THAT(starts_, ElementsAre(std::pair(0U, begin), std::pair(0U, begin + second),
                                   std::pair(0U, begin + 2 * second)));
}

TEST_F(qmond_engine, a_start_that_is_a_little_late_does_not_put_the_next_ones_off) {
  engine_->apply({every_second(0)});
  const std::uint64_t begin = now_;
  immediate_ = return_code::ok;
  for (std::uint64_t i = 0; i < 3; ++i) {
    ASSERT_EQ(engine_->next_due_us(), begin + i * second);
    now_ = begin + i * second + 9000;
    engine_->run_due();
  }
  EXPECT_EQ(starts_.back(), std::pair(0U, begin + 2 * second + 9000));
}

TEST_F(qmond_engine, a_start_that_is_very_late_is_not_followed_by_others_at_once) {
  engine_->apply({every_second(0)});
  immediate_ = return_code::ok;
  now_ += 10 * second + 700000;
  engine_->run_due();
  EXPECT_EQ(starts_.size(), 1U);
  EXPECT_EQ(engine_->next_due_us(), now_ + second);
}

TEST_F(qmond_engine, a_probe_that_takes_too_long_is_given_up) {
  engine_->apply({every_second(0)});
  pass_until(now_ + 399999);
  EXPECT_EQ(under_way_.size(), 1U);
  pass_until(now_ + 1);
  EXPECT_THAT(under_way_, IsEmpty());
  EXPECT_EQ(code(0), 2U);
}

class qmond_engine_late : public qmond_engine {
 protected:
  // A probe is under way, and its timeout is come to only so much later.
  void overlook_timeout(std::uint64_t by_us) {
    engine_->apply({every_second(0)});
    engine_->run_due();
    now_ = *engine_->next_due_us() + by_us;
    engine_->run_due();
  }
};

TEST_F(qmond_engine_late, waking_up_a_little_late_gives_no_more_time) {
  overlook_timeout(49999);
  EXPECT_THAT(under_way_, IsEmpty());
  EXPECT_EQ(code(0), 2U);
}

TEST_F(qmond_engine_late, an_answer_that_came_meanwhile_counts) {
  overlook_timeout(50000);
  ASSERT_EQ(under_way_.size(), 1U);
  answer(0, return_code::ok);
  EXPECT_EQ(code(0), 1U);
}

TEST_F(qmond_engine_late, a_probe_has_as_long_again_as_it_was_overlooked) {
  overlook_timeout(60000);
  pass_until(now_ + 59999);
  EXPECT_EQ(under_way_.size(), 1U);
  pass_until(now_ + 1);
  EXPECT_THAT(under_way_, IsEmpty());
  EXPECT_EQ(code(0), 2U);
}

TEST_F(qmond_engine_late, but_no_longer_than_its_timeout) {
  overlook_timeout(3600 * second);
  pass_until(now_ + 399999);
  EXPECT_EQ(under_way_.size(), 1U);
  pass_until(now_ + 1);
  EXPECT_THAT(under_way_, IsEmpty());
}

TEST_F(qmond_engine_late, more_time_is_given_once_a_probe) {
  overlook_timeout(second);
  now_ = *engine_->next_due_us() + second;
  engine_->run_due();
  EXPECT_THAT(under_way_, IsEmpty());
  EXPECT_EQ(code(0), 2U);
  engine_->run_due();
  pass_until(*engine_->next_due_us());
  ASSERT_EQ(under_way_.size(), 1U) << "the next probe";
  now_ = *engine_->next_due_us() + second;
  engine_->run_due();
  EXPECT_EQ(under_way_.size(), 1U);
}

TEST_F(qmond_engine, a_result_at_once_counts_as_well) {
  immediate_ = return_code::unreachable;
  engine_->apply({every_second(0)});
  engine_->run_due();
  EXPECT_EQ(code(0), 3U);
  EXPECT_EQ(starts_.size(), 1U);
}

TEST_F(qmond_engine, a_probe_without_room_is_tried_again_soon_and_is_no_result) {
  immediate_ = return_code::none;
  engine_->apply({every_second(0)});
  pass_until(now_ + 200000);
  EXPECT_EQ(code(0), 0U);
  EXPECT_EQ(found(0)[word_results], 0U);
  EXPECT_EQ(starts_.size(), 5U);
  immediate_.reset();
  pass_until(now_ + 50000);
  EXPECT_EQ(under_way_.size(), 1U);
}

TEST_F(qmond_engine, a_probe_that_finds_no_room_within_its_timeout_cannot_run) {
  immediate_ = return_code::none;
  engine_->apply({every_second(0)});
  const std::uint64_t begin = now_;
  pass_until(begin + 399999);
  EXPECT_EQ(found(0)[word_results], 0U);
  pass_until(begin + 400000);
  EXPECT_EQ(code(0), 7U);
  const std::size_t starts = starts_.size();
  pass_until(begin + 400000 + second - 1);
  EXPECT_EQ(starts_.size(), starts) << "the next one is an interval later";
  immediate_ = return_code::ok;
  pass_until(begin + 400000 + second);
  EXPECT_EQ(code(0), 1U);
}

// Each time there is no room the operation waits for as long as its timeout, whatever was before.
TEST_F(qmond_engine, a_lack_of_room_that_is_over_is_forgotten) {
  engine_->apply({every_second(0)});
  const std::uint64_t begin = now_;
  for (const std::uint64_t lack : {100000U, 400000U, 100000U, 300000U}) {
    immediate_ = return_code::none;
    const std::uint64_t due = engine_->next_due_us().value();
    pass_until(due + lack - 1);
    immediate_ = return_code::ok;
    const std::uint32_t results = found(0)[word_results];
    pass_until(due + lack + 50000);
    EXPECT_EQ(found(0)[word_results], results + 1) << (due - begin) / second << " s";
    EXPECT_EQ(code(0), 1U) << (due - begin) / second << " s";
  }
}

TEST_F(qmond_engine, many_operations_start_evenly_spread) {
  engine_->apply(many(1500));
  const std::uint64_t begin = now_;
  pass_until(begin + second - 1);
  ASSERT_EQ(starts_.size(), 1500U);
  for (std::uint64_t tenth = 0; tenth < 10; ++tenth) {
    const auto in_it = std::count_if(starts_.begin(), starts_.end(), [&](const auto& start) {
      return (start.second - begin) / (second / 10) == tenth;
    });
    EXPECT_NEAR(static_cast<double>(in_it), 150, 3) << "tenth " << tenth;
  }
}

TEST_F(qmond_engine, a_long_interval_does_not_put_the_first_start_off_for_long) {
  operation slow = every_second(4294967295U);
  slow.interval_ms = 3600 * 1000;
  EXPECT_LE(first_delay_us(slow), 10 * second);
}

TEST_F(qmond_engine, a_new_configuration_touches_only_what_differs) {
  engine_->apply({every_second(0), every_second(1), every_second(2)});
  immediate_ = return_code::ok;
  pass_until(now_ + second - 1);
  immediate_.reset();
  pass_until(now_ + 100000);
  operation changed = every_second(1);
  changed.fall = 2;
  ASSERT_EQ(under_way_.count(0), 1U);
  const difference made = engine_->apply({every_second(0), changed, every_second(3)});
  EXPECT_EQ(made.kept, 1U);
  EXPECT_EQ(made.changed, 1U);
  EXPECT_EQ(made.removed, 1U);
  EXPECT_EQ(made.added, 1U);
  EXPECT_EQ(under_way_.count(0), 1U) << "what is kept goes on";
  EXPECT_EQ(found(0)[word_results], 1U);
  EXPECT_EQ(found(1)[word_results], 0U) << "what has changed begins anew";
  EXPECT_EQ(found(2)[word_use], 0U) << "what was removed is not found";
  EXPECT_EQ(found(3)[word_use], static_cast<std::uint32_t>(slot_use::running));
}

TEST_F(qmond_engine, removing_an_operation_gives_its_probe_up) {
  engine_->apply({every_second(0)});
  engine_->run_due();
  ASSERT_EQ(under_way_.size(), 1U);
  engine_->apply({});
  EXPECT_THAT(under_way_, IsEmpty());
  EXPECT_EQ(engine_->next_due_us(), std::nullopt);
}

TEST_F(qmond_engine, a_table_that_grows_keeps_the_results_and_is_found_by_readers) {
  immediate_ = return_code::ok;
  engine_->apply({every_second(0)});
  engine_->run_due();
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  engine_->apply(many(100));
  EXPECT_FALSE(view.live());
  EXPECT_EQ(code(0), 1U);
  pass_until(now_ + second);
  EXPECT_EQ(code(99), 1U);
  EXPECT_GT(found(0)[word_results], 1U) << "results go to the new table";
}

// As many as would have to be searched for too long in one table.
TEST_F(qmond_engine, operations_whose_ids_collide_are_all_found_in_another_table) {
  constexpr std::uint32_t slots = 512;
  std::vector<operation> colliding;
  for (std::uint32_t id = 0; colliding.size() < 200; ++id) {
    if (home_slot(id, 0, slots) == 0) {
      colliding.push_back(every_second(id));
    }
  }
  immediate_ = return_code::ok;
  engine_->apply({colliding.begin(), colliding.begin() + 100});
  pass_until(now_ + second);
  engine_->apply(colliding);
  table_view view;
  ASSERT_EQ(view.open(path_), 0);
  ASSERT_EQ(view.slots(), slots);
  EXPECT_EQ(code(colliding.front().id), 1U) << "with the results so far";
  pass_until(now_ + second);
  for (const operation& one : colliding) {
    EXPECT_EQ(code(one.id), 1U) << one.id;
  }
}

}  // namespace
}  // namespace ot::qmond
