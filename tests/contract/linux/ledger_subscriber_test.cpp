// Following operational data through the socket, with readers that keep up and readers that do not.
#include "platform/ledger_subscriber.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/ledger/engine/backlog.h"
#include "platform/ledger_provider.h"
#include "platform/ledger_status.h"
#include "tests/contract/linux/ledger_place.h"

namespace ot::test {
namespace {

using ::testing::ElementsAre;

class ledger_subscribers : public ::testing::Test {
 protected:
  void SetUp() override {
    service_.emplace();
    service_->run([this] { ASSERT_EQ(ledger_bind("/oper/gl/", &conn_), 0); });
    ASSERT_EQ(ledger_subscribe("/oper/gl/", &follower_), 0);
  }
  void TearDown() override {
    ledger_unsubscribe(follower_);
    ledger_unbind(conn_);
  }

  // Sends one batch of `count` notices about `name`.
  void send(std::string name, std::uint32_t value, std::size_t count = 1) {
    service_->run([&] {
      const ledger_dpv_notification entry{.path = name.data(),
                                          .kind = ledger_notification_set,
                                          .valid = 1,
                                          .new_value = &value,
                                          .new_value_length = 4,
                                          .sequence = 1};
      const std::vector<ledger_dpv_notification> batch(count, entry);
      ASSERT_EQ(
          ledger_dpv_generate_notifications(conn_, batch.data(), static_cast<std::uint32_t>(count)),
          0);
    });
  }
  int wait(int timeout_ms) {
    return ledger_subscription_wait(follower_, timeout_ms, [this](const ledger_notice& notice) {
      resyncs_ += notice.resync ? 1 : 0;
      seen_.push_back(notice.path + "=" + std::to_string(notice.value));
    });
  }

  ledger_place place_;
  std::optional<threaded_service> service_;
  ledger_conn* conn_ = nullptr;
  ledger_subscription* follower_ = nullptr;
  std::vector<std::string> seen_;
  int resyncs_ = 0;
};

TEST_F(ledger_subscribers, notices_arrive_in_order) {
  send("a", 1);
  send("b", 2);
  while (seen_.size() < 2) {
    ASSERT_EQ(wait(5000), 0);
  }
  EXPECT_THAT(seen_, ElementsAre("a=1", "b=2"));
}

TEST_F(ledger_subscribers, a_wait_ends_with_its_time) {
  EXPECT_EQ(wait(0), 0);
  EXPECT_EQ(wait(50), 0);
  EXPECT_TRUE(seen_.empty());
}

TEST_F(ledger_subscribers, the_end_of_the_service_is_seen) {
  service_.reset();
  EXPECT_EQ(wait(5000), ledger_unreachable);
}

TEST_F(ledger_subscribers, a_bad_path_is_refused) {
  ledger_subscription* other = nullptr;
  EXPECT_EQ(ledger_subscribe("/oper/gl", &other), ledger_unknown_path);
  EXPECT_EQ(other, nullptr);
}

// Long names, so that the socket's own buffer is full soon.
TEST_F(ledger_subscribers, a_reader_that_fell_behind_is_asked_to_read_again) {
  const std::string name(400, 'x');
  for (int i = 0; i < 400; ++i) {
    send(name, 1, 100);
  }
  const std::size_t sent = 400U * 100U;
  for (std::size_t before = 1; before != 0 || resyncs_ == 0;) {
    const std::size_t had = seen_.size();
    ASSERT_EQ(wait(resyncs_ == 0 ? 5000 : 200), 0);
    before = seen_.size() - had;
    ASSERT_TRUE(before != 0 || resyncs_ != 0) << "it has heard all and was not asked";
  }
  // What was kept is what the socket and the bounded queue hold, not what was sent.
  EXPECT_LT(seen_.size(), sent / 2);
  seen_.clear();
  send("after", 3);
  ASSERT_EQ(wait(5000), 0);
  EXPECT_THAT(seen_, ElementsAre("after=3"));
}

TEST_F(ledger_subscribers, a_reader_that_never_reads_is_dropped) {
  const std::string name(400, 'x');
  for (int i = 0; i < 400; ++i) {
    send(name, 1, 100);
  }
  // Another client is served meanwhile, and the stuck one has gone within its time.
  ledger_subscription* healthy = nullptr;
  ASSERT_EQ(ledger_subscribe("/oper/gl/", &healthy), 0);
  int heard = 0;
  const auto count = [&heard](const ledger_notice&) { ++heard; };
  for (int second = 0; second < 8; ++second) {
    send("tick", 1);
    ASSERT_EQ(ledger_subscription_wait(healthy, 1000, count), 0);
    ASSERT_EQ(ledger_subscription_wait(healthy, 1000, count), 0);
  }
  EXPECT_GE(heard, 8);
  ledger_unsubscribe(healthy);
  int status = 0;
  while (status == 0) {
    status = wait(200);
  }
  EXPECT_EQ(status, ledger_unreachable);
}

}  // namespace
}  // namespace ot::test
