// The linked queue: order, removal from every place, and what it does with strangers.
#include "platform/linked_queue.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace ot {
namespace {

class linked_queue : public ::testing::Test {
 protected:
  void SetUp() override {
    for (lq_link& element : elements_) {
      lq_append(queue_, element);
    }
  }
  // The places of the elements in the queue, and that head, tail and count agree with them.
  std::vector<long> order() const {
    std::vector<long> places;
    const lq_link* last = nullptr;
    for (const lq_link* at = queue_.head; at != nullptr; at = at->next) {
      places.push_back(at - elements_.data());
      last = at;
    }
    EXPECT_EQ(queue_.tail, last);
    EXPECT_EQ(queue_.count, places.size());
    return places;
  }

  std::array<lq_link, 4> elements_;
  lq_queue queue_;
};

using places = std::vector<long>;

TEST_F(linked_queue, keeps_the_order_of_the_appends) {
  EXPECT_EQ(order(), (places{0, 1, 2, 3}));
}

TEST_F(linked_queue, removes_from_the_middle_the_end_and_the_front) {
  EXPECT_TRUE(lq_remove(queue_, elements_[1]));
  EXPECT_EQ(order(), (places{0, 2, 3}));
  EXPECT_TRUE(lq_remove(queue_, elements_[3]));
  EXPECT_EQ(order(), (places{0, 2}));
  EXPECT_TRUE(lq_remove(queue_, elements_[0]));
  EXPECT_EQ(order(), (places{2}));
  EXPECT_TRUE(lq_remove(queue_, elements_[2]));
  EXPECT_EQ(order(), places{});
}

TEST_F(linked_queue, appends_again_what_was_removed) {
  lq_remove(queue_, elements_[3]);
  lq_remove(queue_, elements_[0]);
  lq_append(queue_, elements_[0]);
  EXPECT_EQ(order(), (places{1, 2, 0}));
}

TEST_F(linked_queue, leaves_itself_alone_for_a_stranger) {
  lq_link stranger;
  EXPECT_FALSE(lq_remove(queue_, stranger));
  EXPECT_EQ(order(), (places{0, 1, 2, 3}));
}

TEST_F(linked_queue, pops_from_the_front_until_it_is_empty) {
  for (lq_link& element : elements_) {
    EXPECT_EQ(lq_pop(queue_), &element);
    EXPECT_EQ(element.next, nullptr);
  }
  EXPECT_EQ(lq_pop(queue_), nullptr);
  EXPECT_EQ(order(), places{});
  lq_append(queue_, elements_[2]);
  EXPECT_EQ(order(), (places{2}));
}

}  // namespace
}  // namespace ot
