// The FIB: what a look-up answers, and when a client is notified of a registered prefix.
#include "platform/fib_client.h"

#include <arpa/inet.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/status.h"
#include "tests/contract/contract_test.h"
#include "tests/contract/router.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;

using news = std::vector<std::string>;

news* reported = nullptr;

std::uint32_t address_of(const char* text) {
  in_addr address{};
  EXPECT_EQ(inet_pton(AF_INET, text, &address), 1) << text;
  return address.s_addr;
}

std::string text_of(const rtclient_notification& notification) {
  char address[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &notification.prefix, address, sizeof address);
  return std::string{address} + "/" + std::to_string(notification.prefix_length) + " table " +
         std::to_string(notification.table_id);
}

void note_change(const rtclient_notification* notification) {
  EXPECT_EQ(notification->family, fib_family_ipv4);
  reported->push_back(text_of(*notification));
}
void note_loss() {
  reported->push_back("disconnected");
}
void note_connection() {
  reported->push_back("reconnected");
}

rtclient_registration registration(const char* address, std::uint16_t length,
                                   std::uint32_t table = main_table) {
  rtclient_registration request;
  request.table_id = table;
  request.family = fib_family_ipv4;
  request.prefix = address_of(address);
  request.prefix_length = length;
  return request;
}

const rtclient_registration net24 = registration("192.0.2.0", 24);
constexpr const char* net24_text = "192.0.2.0/24 table 254";

class fib_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    reported = &news_;
    if (const std::string reason = interfaces_unavailable(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
    make_interface("ct0");
    make_interface("ct1");
  }
  void TearDown() override {
    close();
    contract_test::TearDown();
  }

  // A client that is connected, nothing reported yet.
  void open() {
    const rtclient_parameters parameters{"contract", 1, manager(), 3225};
    ASSERT_EQ(rtclient_init(parameters, {note_change, note_loss, note_connection}, &client_), 0);
    EXPECT_EQ(news_, news{}) << "the connection is reported on the loop";
    ASSERT_TRUE(run_until([this] { return !news_.empty(); }));
    EXPECT_EQ(news_, news{"reconnected"});
    news_.clear();
  }
  void close() {
    if (client_ != nullptr) {
      rtclient_close(client_);
      client_ = nullptr;
    }
  }
  // Registers and takes the notification that this brings.
  void watch(const rtclient_registration& prefix) {
    ASSERT_EQ(rtclient_bulk_reg_notif(client_, {&prefix, 1}), 0);
    ASSERT_TRUE(run_until([this] { return !news_.empty(); }));
    let_pass(manager(), 100ms);
    news_.clear();
  }
  bool reported_within_time(const std::string& what) {
    const bool came =
        run_until([&] { return std::find(news_.begin(), news_.end(), what) != news_.end(); });
    let_pass(manager(), 100ms);
    news_.clear();
    return came;
  }

  // "LENGTH INTERFACE" of the longest match, or "none"; "own" if the address is the router's.
  std::string match(const char* address, std::uint32_t table = main_table) {
    rtclient_result* result = nullptr;
    EXPECT_EQ(rtclient_lookup(client_, fib_family_ipv4, table, address_of(address), &result), 0);
    const std::unique_ptr<rtclient_result, void (*)(rtclient_result*)> owner{result,
                                                                             rtclient_lookup_free};
    if (result == nullptr) {
      return "none";
    }
    const std::string own = result->own_address ? " own" : "";
    return (result->route_found ? std::to_string(result->prefix_length) + " " +
                                      std::string{result->first_hop.view()}
                                : "none") +
           own;
  }

  rtclient* client_ = nullptr;
  news news_;
};

TEST_F(fib_contract, a_look_up_finds_the_longest_match) {
  open();
  EXPECT_EQ(match("192.0.2.0"), "none");
  add_route("192.0.0.0/16", "ct0");
  EXPECT_EQ(match("192.0.2.0"), "16 ct0");
  add_route("192.0.2.0/24", "ct1");
  EXPECT_EQ(match("192.0.2.0"), "24 ct1");
  add_route("192.0.2.0/25", "ct0");
  EXPECT_EQ(match("192.0.2.0"), "25 ct0");
  EXPECT_EQ(match("192.0.2.128"), "24 ct1");
  remove_route("192.0.2.0/25");
  add_route("192.0.2.0/24", "ct0");
  EXPECT_EQ(match("192.0.2.0"), "24 ct0");
}

TEST_F(fib_contract, a_look_up_names_the_interface_as_it_is_called_now) {
  open();
  watch(net24);
  add_route("192.0.2.0/24", "ct0");
  EXPECT_TRUE(reported_within_time(net24_text));
  rename_interface("ct0", "ct9");
  add_route("192.0.2.0/24", "ct9");
  EXPECT_TRUE(reported_within_time(net24_text));
  EXPECT_EQ(match("192.0.2.0"), "24 ct9");
}

TEST_F(fib_contract, a_default_route_matches_with_length_0) {
  open();
  add_route("0.0.0.0/0", "ct0");
  EXPECT_EQ(match("192.0.2.0"), "0 ct0");
}

TEST_F(fib_contract, an_address_of_the_routers_own_hides_no_route) {
  open();
  watch(registration("192.0.2.0", 31));
  add_address("192.0.2.0/31", "ct0");
  EXPECT_TRUE(reported_within_time("192.0.2.0/31 table 254"));
  EXPECT_EQ(match("192.0.2.0"), "31 ct0 own");
  EXPECT_EQ(match("192.0.2.1"), "31 ct0");
}

// What the client is told of is what it finds when it looks, although the route has changed since.
TEST_F(fib_contract, a_look_up_in_a_notification_is_what_it_stands_for) {
  static rtclient* client;
  static std::vector<bool> found;
  found.clear();
  const rtclient_callbacks callbacks{
      [](const rtclient_notification* notification) {
        note_change(notification);
        if (found.empty()) {
          add_route("192.0.2.0/24", "ct0");  // after the look that is being reported
        }
        rtclient_result* result = nullptr;
        ASSERT_EQ(
            rtclient_lookup(client, fib_family_ipv4, main_table, notification->prefix, &result), 0);
        found.push_back(result->route_found);
        rtclient_lookup_free(result);
      },
      note_loss, note_connection};
  ASSERT_EQ(rtclient_init({"contract", 1, manager(), 3225}, callbacks, &client), 0);
  client_ = client;
  ASSERT_TRUE(run_until([this] { return !news_.empty(); }));
  ASSERT_EQ(rtclient_bulk_reg_notif(client_, {&net24, 1}), 0);
  ASSERT_TRUE(run_until([] { return found.size() >= 2; }));
  EXPECT_EQ(found, (std::vector<bool>{false, true}));
}

TEST_F(fib_contract, a_look_up_of_another_family_is_refused) {
  open();
  int anything = 0;
  auto* result = reinterpret_cast<rtclient_result*>(&anything);
  EXPECT_EQ(rtclient_lookup(client_, 10, main_table, address_of("192.0.2.0"), &result),
            invalid_argument);
  EXPECT_EQ(result, nullptr);
  rtclient_lookup_free(nullptr);
}

TEST_F(fib_contract, a_registration_is_reported_once_soon_after) {
  open();
  ASSERT_EQ(rtclient_bulk_reg_notif(client_, {&net24, 1}), 0);
  EXPECT_EQ(news_, news{}) << "not before the call returns";
  ASSERT_TRUE(run_until([this] { return !news_.empty(); }));
  let_pass(manager(), 200ms);
  EXPECT_EQ(news_, news{net24_text});
}

TEST_F(fib_contract, a_second_registration_is_answered_as_one_and_notified_all_the_same) {
  open();
  watch(net24);
  EXPECT_EQ(rtclient_bulk_reg_notif(client_, {&net24, 1}), fib_already_registered);
  EXPECT_TRUE(reported_within_time(net24_text));
}

TEST_F(fib_contract, the_same_prefix_in_another_table_or_length_is_another_one) {
  open();
  watch(net24);
  watch(registration("192.0.2.0", 25));
  watch(registration("192.0.2.0", 24, 7));
}

TEST_F(fib_contract, every_change_of_the_longest_match_is_reported) {
  open();
  watch(net24);
  add_route("192.0.2.0/24", "ct0");
  EXPECT_TRUE(reported_within_time(net24_text)) << "added";
  add_route("192.0.2.0/24", "ct1");
  EXPECT_TRUE(reported_within_time(net24_text)) << "replaced";
  add_route("192.0.2.0/25", "ct0");
  EXPECT_TRUE(reported_within_time(net24_text)) << "hidden";
  remove_route("192.0.2.0/25");
  EXPECT_TRUE(reported_within_time(net24_text)) << "not hidden any more";
  remove_route("192.0.2.0/24");
  EXPECT_TRUE(reported_within_time(net24_text)) << "removed";
  add_route("192.0.0.0/16", "ct0");
  EXPECT_TRUE(reported_within_time(net24_text)) << "covered";
}

TEST_F(fib_contract, changes_that_follow_each_other_closely_are_reported) {
  open();
  watch(net24);
  for (int i = 0; i < 5; ++i) {
    add_route("192.0.2.0/24", "ct0");
    EXPECT_TRUE(run_until([this] { return !news_.empty(); })) << i;
    news_.clear();
    remove_route("192.0.2.0/24");
    EXPECT_TRUE(run_until([this] { return !news_.empty(); })) << i;
    news_.clear();
  }
}

TEST_F(fib_contract, only_prefixes_concerned_are_reported) {
  open();
  watch(net24);
  const rtclient_registration other = registration("198.51.100.0", 24);
  watch(other);
  add_route("203.0.113.0/24", "ct0");
  add_route("198.51.100.0/24", "ct0");
  ASSERT_TRUE(run_until([this] { return !news_.empty(); }));
  let_pass(manager(), 200ms);
  EXPECT_EQ(news_, news{"198.51.100.0/24 table 254"});
}

TEST_F(fib_contract, an_unregistered_prefix_is_not_reported) {
  open();
  watch(net24);
  EXPECT_EQ(rtclient_bulk_unreg_notif(client_, {&net24, 1}), 0);
  EXPECT_EQ(rtclient_bulk_unreg_notif(client_, {&net24, 1}), not_found_errno);
  add_route("192.0.2.0/24", "ct0");
  let_pass(manager(), 200ms);
  EXPECT_EQ(news_, news{});
}

TEST_F(fib_contract, a_lost_connection_comes_back_without_the_registrations) {
  open();
  watch(net24);
  lose_fib_messages();
  ASSERT_TRUE(run_until([this] { return news_.size() >= 2; }));
  EXPECT_EQ(news_, (news{"disconnected", "reconnected"}));
  news_.clear();
  watch(net24);
  add_route("192.0.2.0/24", "ct0");
  EXPECT_TRUE(reported_within_time(net24_text));
}

TEST_F(fib_contract, a_closed_client_is_notified_of_nothing) {
  open();
  ASSERT_EQ(rtclient_bulk_reg_notif(client_, {&net24, 1}), 0);
  close();
  let_pass(manager(), 100ms);
  EXPECT_EQ(news_, news{});
}

TEST_F(fib_contract, a_callback_may_register_and_unregister) {
  static rtclient* client;
  static const rtclient_registration more[] = {registration("198.51.100.0", 24),
                                               registration("10.0.0.0", 8)};
  const rtclient_callbacks callbacks{
      [](const rtclient_notification* notification) {
        note_change(notification);
        if (notification->prefix == net24.prefix) {
          EXPECT_EQ(rtclient_bulk_unreg_notif(client, {&net24, 1}), 0);
          EXPECT_EQ(rtclient_bulk_reg_notif(client, more), 0);
        }
      },
      note_loss, note_connection};
  ASSERT_EQ(rtclient_init({"contract", 1, manager(), 3225}, callbacks, &client), 0);
  client_ = client;
  ASSERT_TRUE(run_until([this] { return !news_.empty(); }));
  news_.clear();
  ASSERT_EQ(rtclient_bulk_reg_notif(client, {&net24, 1}), 0);
  ASSERT_TRUE(run_until([this] { return news_.size() >= 3; }));
  std::sort(news_.begin(), news_.end());
  EXPECT_EQ(news_, (news{"10.0.0.0/8 table 254", net24_text, "198.51.100.0/24 table 254"}));
}

}  // namespace
}  // namespace ot::contract
