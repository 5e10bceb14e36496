// Which prefixes a change of a route concerns, held to the plain comparison of every pair.
#include "platform/common/watched_prefixes.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "platform/ipv4.h"
#include "platform/status.h"

namespace ot::test {
namespace {

using prefixes = std::vector<fib_prefix>;

bool contains(const fib_prefix& outer, const fib_prefix& inner) {
  return outer.table == inner.table && outer.length <= inner.length &&
         ((outer.address ^ inner.address) & ipv4_prefixlen2mask(outer.length)) == 0;
}

class watching : public testing::Test {
 protected:
  std::uint32_t any_below(std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(pick_);
  }
  // Few bits, so that prefixes often contain each other.
  fib_prefix any_prefix() {
    fib_prefix prefix;
    prefix.table = 253 + any_below(3);
    prefix.length = any_below(33);
    const std::uint32_t address = any_below(4) << 30 | any_below(4) << 15 | any_below(4);
    prefix.address = htonl(address) & ipv4_prefixlen2mask(prefix.length);
    return prefix;
  }
  // The prefixes that were looked at, each once.
  prefixes take_looks() {
    std::sort(looks_.begin(), looks_.end());
    return std::exchange(looks_, {});
  }
  prefixes watched_that(const auto& condition) const {
    prefixes found;
    std::copy_if(added_.begin(), added_.end(), std::back_inserter(found), condition);
    return found;
  }

  std::mt19937 pick_{20261122};
  prefixes looks_;
  route_links links_;  // of each answer
  std::set<fib_prefix> added_;
  watched_prefixes watched_{[](void* test, const fib_prefix& prefix, fib_answer* ret) {
                              auto& self = *static_cast<watching*>(test);
                              self.looks_.push_back(prefix);
                              ret->links = self.links_;
                              return 0;
                            },
                            this};
};

TEST_F(watching, a_route_concerns_what_it_contains_and_what_contains_it) {
  for (int round = 0; round < 200; ++round) {
    const fib_prefix more = any_prefix();
    watched_.add(more);
    added_.insert(more);
    if (round % 3 == 0) {
      const fib_prefix less = any_prefix();
      watched_.remove(less);
      added_.erase(less);
    }
    watched_.look_at_all();
    EXPECT_EQ(take_looks(), prefixes(added_.begin(), added_.end()));
    const prefixes routes{any_prefix(), any_prefix()};
    const auto concerned = [](const fib_prefix& prefix, const fib_prefix& route) {
      return contains(prefix, route) || contains(route, prefix);
    };
    const prefixes expected = watched_that([&](const fib_prefix& prefix) {
      return concerned(prefix, routes[0]) || concerned(prefix, routes[1]);
    });
    EXPECT_EQ(watched_.concerned_by(routes[0]) || watched_.concerned_by(routes[1]),
              !expected.empty());
    watched_.look_at_related(routes);
    EXPECT_EQ(take_looks(), expected);
    watched_.look_at_containing(routes[0]);
    EXPECT_EQ(take_looks(),
              watched_that([&](const fib_prefix& prefix) { return contains(prefix, routes[0]); }));
  }
}

TEST_F(watching, a_link_concerns_the_prefixes_whose_last_answer_came_by_it) {
  const fib_prefix first{254, htonl(0x0a000000), 8};
  const fib_prefix second{254, htonl(0x0b000000), 8};
  links_.add(7);
  links_.add(9);
  watched_.add(first);
  watched_.look_at_related({});
  links_ = {};
  links_.add(8);
  watched_.add(second);
  watched_.look_at_related({});
  take_looks();
  const std::uint32_t none[] = {5};
  const std::uint32_t one[] = {5, 9};
  const std::uint32_t both[] = {8, 9};
  EXPECT_FALSE(watched_.look_at_using(none));
  EXPECT_EQ(take_looks(), prefixes{});
  EXPECT_TRUE(watched_.look_at_using(one));
  EXPECT_EQ(take_looks(), prefixes{first});
  // It came by link 8 this time.
  EXPECT_FALSE(watched_.look_at_using(one));
  EXPECT_TRUE(watched_.look_at_using(both));
  EXPECT_EQ(take_looks(), (prefixes{first, second}));
}

TEST_F(watching, an_answer_by_unknown_or_many_links_may_have_come_by_any) {
  const fib_prefix first{254, htonl(0x0a000000), 8};
  const std::uint32_t other[] = {77};
  watched_.add(first);
  watched_.look_at_all();
  EXPECT_FALSE(watched_.look_at_using(other));
  links_.add(0);
  watched_.look_at_all();
  EXPECT_TRUE(watched_.look_at_using(other));
  links_ = {};
  for (const std::uint32_t link : {1U, 2U, 3U, 4U}) {
    links_.add(link);
  }
  watched_.look_at_all();
  EXPECT_TRUE(watched_.look_at_using(other));
}

TEST_F(watching, a_new_prefix_is_looked_at_with_whatever_comes_next) {
  const fib_prefix first{254, htonl(0x0a000000), 8};
  EXPECT_EQ(watched_.add(first), 0);
  watched_.look_at_related({});
  EXPECT_EQ(take_looks(), prefixes{first});
  watched_.look_at_related({});
  EXPECT_EQ(take_looks(), prefixes{});
  EXPECT_EQ(watched_.add(first), fib_already_registered);
  watched_.look_at_related({});
  EXPECT_EQ(take_looks(), prefixes{first});
  EXPECT_EQ(watched_.add({254, 0, 33}), invalid_argument);
}

// What was announced and is not looked at yet, and what was looked at.
struct asked_ahead {
  prefixes announced;
  prefixes looks;
  int ends = 0;

  static int look(void* self, const fib_prefix& prefix, fib_answer*) {
    auto& all = *static_cast<asked_ahead*>(self);
    EXPECT_FALSE(all.announced.empty());
    EXPECT_EQ(all.announced.front(), prefix);
    all.announced.erase(all.announced.begin());
    all.looks.push_back(prefix);
    return status_ok;
  }
  static void announce(void* self, std::span<const fib_prefix> next) {
    auto& all = *static_cast<asked_ahead*>(self);
    EXPECT_TRUE(all.announced.empty()) << "before all of the others were looked at";
    all.announced.assign(next.begin(), next.end());
    all.ends += next.empty() ? 1 : 0;
  }
};

TEST(looks_asked_ahead, are_all_made_in_order_and_end) {
  asked_ahead asked;
  watched_prefixes watched{asked_ahead::look, &asked, asked_ahead::announce};
  watched.look_at_all();
  EXPECT_EQ(asked.ends, 0) << "there was nothing to ask";
  prefixes all;
  for (std::uint32_t number = 0; number < 1'000; ++number) {
    all.push_back({254, htonl(0x0a000000 + number), 32});
    ASSERT_EQ(watched.add(all.back()), status_ok);
  }
  watched.look_at_all();
  EXPECT_EQ(asked.looks, all);
  EXPECT_EQ(asked.ends, 1) << "later looks must not find what was asked then";
}

// What looks come to, one after the other, for the only prefix there is.
struct answers {
  struct answer {
    int status = status_ok;
    bool route_found = false;
  };
  std::vector<answer> all;
  std::size_t given = 0;

  static int give(void* self, const fib_prefix& prefix, fib_answer* ret) {
    auto& from = *static_cast<answers*>(self);
    EXPECT_LT(from.given, from.all.size());
    const answer next = from.all[from.given++];
    ret->result.route_found = next.route_found;
    ret->result.prefix_length = prefix.length;
    return next.status;
  }
};

int reports;

int reports_after(watched_prefixes& watched) {
  reports = 0;
  watched.notify([](const rtclient_notification*) { ++reports; });
  return reports;
}

TEST(failed_looks, are_made_again_with_whatever_comes_next_until_the_first_has_succeeded) {
  answers looks{{{no_memory}, {no_memory}, {status_ok}}};
  watched_prefixes watched{answers::give, &looks};
  EXPECT_EQ(watched.add({254, htonl(0x0a000000), 8}), 0);
  for (const int reported : {0, 0, 1, 0}) {
    watched.look_at_related({});
    EXPECT_EQ(watched.take_failed(), looks.given < 3) << "after look " << looks.given;
    EXPECT_EQ(reports_after(watched), reported) << "after look " << looks.given;
  }
  EXPECT_EQ(looks.given, 3U);
}

TEST(failed_looks, say_nothing_of_a_route_that_was_found_before) {
  answers looks{{{status_ok, true}, {no_memory}, {status_ok, true}, {no_memory}, {status_ok}}};
  watched_prefixes watched{answers::give, &looks};
  EXPECT_EQ(watched.add({254, htonl(0x0a000000), 8}), 0);
  for (const int reported : {1, 0, 0, 0, 1}) {
    watched.look_at_all();
    EXPECT_EQ(reports_after(watched), reported) << "after look " << looks.given;
  }
}

TEST(failed_looks, are_told_once_whatever_the_others_found) {
  answers looks{{{no_memory}, {status_ok}, {status_ok}, {status_ok}}};
  watched_prefixes watched{answers::give, &looks};
  EXPECT_EQ(watched.add({254, htonl(0x0a000000), 8}), 0);
  EXPECT_EQ(watched.add({254, htonl(0x0b000000), 8}), 0);
  watched.look_at_all();
  EXPECT_TRUE(watched.take_failed());
  EXPECT_FALSE(watched.take_failed());
  watched.look_at_all();
  EXPECT_FALSE(watched.take_failed());
}

}  // namespace
}  // namespace ot::test
