// Which changes of routes are asked of the kernel, on one in memory that holds to its rules: one
// route a key, deletions only of ours, and routes that go without a word.
#include "tools/trackpolicy/kernel/route_keeper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <utility>

#include "tests/support/seeds.h"

namespace ot::trackpolicy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint8_t foreign = 4;  // "static"

struct held_route {
  kernel_route what;
  std::uint8_t protocol = route_protocol;
};

class fake_kernel : public route_kernel {
 public:
  explicit fake_kernel(route_keeper& keeper) : keeper_(keeper) {}

  void carry_out(std::vector<route_change>& changes) override {
    ++batches;
    for (route_change& each : changes) {
      ++asked;
      each.error = refusal != 0 ? refusal : each.add ? add(each.what) : remove(each.what);
    }
  }
  void tell(const std::string& owner, const std::string& text) override {
    told.push_back(owner + ": " + text);
  }

  // What the kernel notifies of a change by somebody else.
  void somebody_deletes(const kernel_route& what) {
    const auto gone = find(what, route_protocol);
    ASSERT_NE(gone, routes.end());
    routes.erase(gone);
    keeper_.take_one(what, false, false);
  }

  [[nodiscard]] std::vector<kernel_route> ours() const {
    std::vector<kernel_route> found;
    for (const held_route& each : routes) {
      if (each.protocol == route_protocol) found.push_back(each.what);
    }
    return found;
  }

  std::vector<held_route> routes;
  std::vector<std::string> told;
  int refusal = 0;
  int batches = 0;
  int asked = 0;

 private:
  int add(kernel_route what) {
    for (const held_route& each : routes) {
      if (each.what.key == what.key) return EEXIST;
    }
    what.ifindex = what.ifindex == 0 ? 9 : what.ifindex;  // by its gateway
    routes.push_back({what});
    keeper_.take_one(what, true, true);
    return 0;
  }

  int remove(const kernel_route& what) {
    const auto gone = find(what, route_protocol);
    if (gone == routes.end()) return ESRCH;
    routes.erase(gone);
    keeper_.take_one(what, false, true);
    return 0;
  }

  std::vector<held_route>::iterator find(const kernel_route& what, std::uint8_t protocol) {
    return std::find_if(routes.begin(), routes.end(), [&](const held_route& each) {
      return each.what == what && each.protocol == protocol;
    });
  }

  route_keeper& keeper_;
};

ip_address address(const char* text) {
  ip_address made;
  EXPECT_TRUE(parse_address(text, &made));
  return made;
}

route via(const char* gateway, std::uint32_t metric = 0) {
  route made;
  made.via = address(gateway);
  made.metric = metric;
  return made;
}

// As the kernel has a route that was asked for.
kernel_route held(const route& what, std::uint32_t ifindex = 9) {
  kernel_route made;
  made.key = {.to = what.to, .length = what.length, .table = what.table, .metric = what.metric};
  made.key.to.family = family_of(what);
  made.via = what.via;
  made.ifindex = ifindex;
  return made;
}

class kept_routes : public testing::Test {
 protected:
  std::uint64_t settle() { return keeper_.settle(now_, links_, kernel_); }
  void compare() {
    keeper_.take_all(kernel_.ours());
    settle();
  }
  void wish_for(const std::string& owner, const route& what, wish wanted) {
    keeper_.set(owner, what, wanted);
    settle();
  }

  route_keeper keeper_;
  fake_kernel kernel_{keeper_};
  link_table links_;
  std::uint64_t now_ = 10'000'000;
};

TEST_F(kept_routes, a_route_is_there_while_it_is_wanted) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(via("192.0.2.1"))));
  EXPECT_TRUE(keeper_.status("a").done);
  wish_for("a", via("192.0.2.1"), wish::no);
  EXPECT_THAT(kernel_.ours(), IsEmpty());
  EXPECT_EQ(keeper_.status("a").changes, 2U);
}

TEST_F(kept_routes, what_has_gone_already_is_no_refusal) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  kernel_.routes.clear();  // without a word
  wish_for("a", via("192.0.2.1"), wish::no);
  EXPECT_EQ(keeper_.status("a").problem, "");
  EXPECT_EQ(keeper_.status("a").refusals, 0U);
  EXPECT_THAT(kernel_.told, IsEmpty());
}

TEST_F(kept_routes, what_is_as_wanted_is_not_asked_for_again) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  const int asked = kernel_.asked;
  wish_for("a", via("192.0.2.1"), wish::yes);
  compare();
  EXPECT_EQ(kernel_.asked, asked);
}

TEST_F(kept_routes, changes_of_a_turn_are_one_batch) {
  for (std::uint32_t i = 1; i <= 100; ++i) {
    keeper_.set("a" + std::to_string(i), via("192.0.2.1", i), wish::yes);
  }
  settle();
  EXPECT_EQ(kernel_.batches, 1);
  EXPECT_EQ(kernel_.ours().size(), 100U);
}

TEST_F(kept_routes, what_somebody_deletes_comes_back_but_not_at_once_each_time) {
  const route what = via("192.0.2.1");
  wish_for("a", what, wish::yes);
  now_ += route_keeper::again_us;
  kernel_.somebody_deletes(held(what));
  EXPECT_TRUE(keeper_.unsettled());
  settle();
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(what)));
  kernel_.somebody_deletes(held(what));
  EXPECT_EQ(settle(), now_ + route_keeper::again_us);
  EXPECT_THAT(kernel_.ours(), IsEmpty());
  now_ += route_keeper::again_us;
  EXPECT_EQ(settle(), UINT64_MAX);
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(what)));
}

TEST_F(kept_routes, a_new_wish_does_not_wait) {
  for (const wish each : {wish::yes, wish::no, wish::yes, wish::no, wish::yes}) {
    wish_for("a", via("192.0.2.1"), each);
    EXPECT_EQ(kernel_.ours().size(), each == wish::yes ? 1U : 0U);
  }
}

TEST_F(kept_routes, what_went_without_a_word_is_found_by_comparing) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  kernel_.routes.clear();
  now_ += route_keeper::again_us;
  compare();
  EXPECT_EQ(kernel_.ours().size(), 1U);
}

TEST_F(kept_routes, a_route_of_somebody_else_is_never_touched) {
  const route what = via("192.0.2.1", 10);
  kernel_.routes.push_back({held(what, 7), foreign});
  wish_for("a", what, wish::yes);
  EXPECT_THAT(keeper_.status("a").problem,
              testing::HasSubstr("File exists: somebody else's route to the same destination"));
  EXPECT_FALSE(keeper_.status("a").done);
  wish_for("a", what, wish::no);
  ASSERT_EQ(kernel_.routes.size(), 1U);
  EXPECT_EQ(kernel_.routes[0].protocol, foreign);
  wish_for("a", what, wish::yes);
  kernel_.routes.clear();
  now_ += route_keeper::again_us;
  keeper_.try_again();
  settle();
  EXPECT_TRUE(keeper_.status("a").done);
  EXPECT_EQ(keeper_.status("a").problem, "");
}

TEST_F(kept_routes, a_refusal_is_told_once_however_often_it_is_tried) {
  kernel_.refusal = ENETUNREACH;
  wish_for("a", via("192.0.2.1"), wish::yes);
  for (int i = 0; i < 3; ++i) {
    now_ += 5'000'000;
    keeper_.try_again();
    settle();
  }
  EXPECT_THAT(kernel_.told, ElementsAre("a: Network is unreachable: the gateway is on none of the "
                                        "router's networks"));
  EXPECT_EQ(keeper_.status("a").refusals, 1U);
  EXPECT_EQ(kernel_.asked, 4);
  EXPECT_TRUE(keeper_.refused());
}

TEST_F(kept_routes, a_route_that_goes_with_its_link_is_told_only_if_it_stays_refused) {
  const auto lose = [this] {
    wish_for("a", via("192.0.2.1"), wish::yes);
    kernel_.refusal = ENETUNREACH;
    kernel_.somebody_deletes(held(via("192.0.2.1")));
    now_ += route_keeper::again_us;
    settle();
    EXPECT_THAT(keeper_.status("a").problem, testing::HasSubstr("Network is unreachable"));
    EXPECT_EQ(keeper_.status("a").refusals, 0U);
    EXPECT_THAT(kernel_.told, IsEmpty());
  };
  for (int i = 0; i < 3; ++i) {
    lose();
    wish_for("a", via("192.0.2.1"), wish::no);  // what the track's event says
    EXPECT_EQ(keeper_.status("a").problem, "");
    kernel_.refusal = 0;
  }
  lose();
  now_ += route_keeper::again_us;
  keeper_.try_again();
  settle();
  EXPECT_EQ(kernel_.told.size(), 1U);
  EXPECT_EQ(keeper_.status("a").refusals, 1U);
}

TEST_F(kept_routes, what_is_refused_stays_refused_until_it_is_there) {
  kernel_.refusal = ENETUNREACH;
  wish_for("a", via("192.0.2.1"), wish::yes);
  const std::string refused = keeper_.status("a").problem;
  EXPECT_THAT(refused, testing::HasSubstr("Network is unreachable"));
  keeper_.try_again();  // too soon after the first time
  settle();
  EXPECT_EQ(keeper_.status("a").problem, refused);
  EXPECT_TRUE(keeper_.refused());
  EXPECT_EQ(kernel_.asked, 1);
  kernel_.refusal = 0;
  now_ += 5'000'000;
  keeper_.try_again();
  settle();
  EXPECT_EQ(keeper_.status("a").problem, "");
  EXPECT_FALSE(keeper_.refused());
}

TEST_F(kept_routes, a_new_wish_starts_without_the_refusal_of_the_old_one) {
  kernel_.refusal = ENETUNREACH;
  wish_for("a", via("192.0.2.1"), wish::yes);
  wish_for("a", via("192.0.2.1"), wish::no);
  EXPECT_EQ(keeper_.status("a").problem, "");
  EXPECT_FALSE(keeper_.refused());
}

TEST_F(kept_routes, what_nobody_asks_for_is_removed_and_what_may_be_wanted_is_kept) {
  kernel_.routes = {{held(via("192.0.2.1", 1))}, {held(via("192.0.2.1", 2))}};
  keeper_.set("a", via("192.0.2.1", 1), wish::keep);
  compare();
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(via("192.0.2.1", 1))));
  wish_for("a", via("192.0.2.1", 1), wish::yes);
  EXPECT_EQ(kernel_.asked, 1);  // that deletion
  keeper_.forget("a");
  settle();
  EXPECT_THAT(kernel_.ours(), IsEmpty());
  EXPECT_TRUE(keeper_.none_there());
}

TEST_F(kept_routes, a_changed_route_takes_the_place_of_the_old_one) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  wish_for("a", via("192.0.2.2"), wish::yes);
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(via("192.0.2.2"))));
}

TEST_F(kept_routes, policies_hand_a_key_to_each_other_in_one_turn) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  keeper_.set("b", via("192.0.2.2"), wish::yes);
  settle();
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(via("192.0.2.1"))));
  EXPECT_THAT(keeper_.status("b").problem, testing::HasSubstr("policy \"a\" has a route"));
  const int batches = kernel_.batches;
  keeper_.set("a", via("192.0.2.1"), wish::no);
  settle();
  EXPECT_EQ(kernel_.batches, batches + 1);
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(via("192.0.2.2"))));
  EXPECT_TRUE(keeper_.status("b").done);
  wish_for("a", via("192.0.2.1"), wish::yes);  // the one that is there stays
  EXPECT_THAT(kernel_.ours(), ElementsAre(held(via("192.0.2.2"))));
}

TEST_F(kept_routes, an_interface_or_a_vrf_that_is_not_there_is_told_and_waited_for) {
  route out = via("192.0.2.1");
  out.dev = "wan0";
  out.vrf = "blue";
  wish_for("a", out, wish::yes);
  EXPECT_EQ(keeper_.status("a").problem, "there is no VRF \"blue\"");
  links_.put({.index = 5, .name = "blue", .up = true, .vrf_table = 77, .lower = 0});
  keeper_.try_again();
  settle();
  EXPECT_EQ(keeper_.status("a").problem, "there is no interface \"wan0\"");
  EXPECT_EQ(kernel_.asked, 0);
  links_.put({.index = 6, .name = "wan0", .up = true, .vrf_table = 0, .lower = 0});
  keeper_.try_again();
  settle();
  ASSERT_EQ(kernel_.ours().size(), 1U);
  EXPECT_EQ(kernel_.ours()[0].key.table, 77U);
  EXPECT_EQ(kernel_.ours()[0].ifindex, 6U);
}

TEST_F(kept_routes, ipv6_has_a_metric_always) {
  wish_for("a", via("2001:db8::1"), wish::yes);
  EXPECT_EQ(kernel_.ours().at(0).key.metric, 1024U);
  EXPECT_TRUE(keeper_.status("a").done);
  compare();
  EXPECT_EQ(kernel_.asked, 1);
}

TEST_F(kept_routes, what_cannot_be_withdrawn_is_told_and_tried_again) {
  wish_for("a", via("192.0.2.1"), wish::yes);
  kernel_.refusal = EPERM;
  wish_for("a", via("192.0.2.1"), wish::no);
  EXPECT_THAT(keeper_.status("a").problem, testing::HasSubstr("CAP_NET_ADMIN"));
  kernel_.refusal = 0;
  keeper_.try_again();
  settle();
  EXPECT_THAT(kernel_.ours(), IsEmpty());
  EXPECT_EQ(keeper_.status("a").problem, "");
}

// Whatever happens, in the end ours are those that are wanted, and the others' are as they were.
TEST_F(kept_routes, in_the_end_the_kernel_has_what_is_wanted) {
  const unsigned seed = test::one_seed();
  SCOPED_TRACE(test::shown(seed));
  std::mt19937 random(seed);
  const std::vector<route> ways{via("192.0.2.1", 1), via("192.0.2.2", 1), via("192.0.2.1", 2),
                                via("2001:db8::1", 3)};
  kernel_.routes.push_back({held(via("192.0.2.9", 4), 7), foreign});
  const held_route other = kernel_.routes.back();
  std::map<std::string, std::pair<route, wish>> wanted;
  for (int step = 0; step < 3000; ++step) {
    const std::string owner(1, static_cast<char>('a' + random() % 3));
    const std::vector<kernel_route> ours = kernel_.ours();
    now_ += random() % 2 * route_keeper::again_us;
    switch (random() % 6) {
      case 0:
        keeper_.forget(owner);
        wanted.erase(owner);
        break;
      case 1:
        if (!ours.empty()) kernel_.somebody_deletes(ours[random() % ours.size()]);
        break;
      case 2:
        std::erase_if(kernel_.routes, [](const held_route& each) {
          return each.protocol == route_protocol;  // without a word
        });
        keeper_.take_all(kernel_.ours());
        break;
      default:
        wanted[owner] = {ways[random() % ways.size()], random() % 2 == 0 ? wish::yes : wish::no};
        keeper_.set(owner, wanted[owner].first, wanted[owner].second);
    }
    settle();
    now_ += route_keeper::again_us;
    settle();
    for (const auto& [name, one] : wanted) {
      const outcome now = keeper_.status(name);
      ASSERT_TRUE(now.done || now.problem.find("policy") == 0) << name << " at step " << step;
    }
    for (const kernel_route& each : kernel_.ours()) {
      ASSERT_TRUE(std::any_of(wanted.begin(), wanted.end(), [&](const auto& one) {
        return one.second.second == wish::yes && one.second.first.via == each.via;
      }));
    }
  }
  EXPECT_EQ(std::count_if(kernel_.routes.begin(), kernel_.routes.end(),
                          [&](const held_route& each) {
                            return each.what == other.what && each.protocol == foreign;
                          }),
            1);
}

}  // namespace
}  // namespace ot::trackpolicy
