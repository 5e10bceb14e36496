// Clients that break the rules of the ledger's socket: each is dropped, and the service goes on.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <vector>

#include "platform/ledger.h"
#include "platform/ledger/client/link.h"
#include "platform/ledger/messages.h"
#include "platform/ledger_commit.h"
#include "platform/ledger_status.h"
#include "platform/ledger_subscriber.h"
#include "platform/linux/loop/listener.h"
#include "platform/linux/unique_fd.h"
#include "tests/contract/linux/closed_descriptors.h"
#include "tests/contract/linux/ledger_place.h"
#include "tests/contract/linux/raw_client.h"
#include "tests/support/ledger_proposals.h"
#include "tests/support/sample_tree.h"

namespace ot::test {
namespace {

// Resident kilobytes of this process, the service's thread included.
long resident_kb() {
  std::ifstream file{"/proc/self/statm"};
  long pages = 0;
  file >> pages >> pages;
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

class ledger_peers : public ::testing::Test {
 protected:
  void SetUp() override {
    service_.run([] { ASSERT_EQ(register_sample_tree(), 0); });
  }
  // The service answers a client that keeps to the rules.
  void expect_service() {
    ledger_link link;
    ledger_writer request;
    request.text("/oper/nothing");
    ledger_reply reply;
    EXPECT_EQ(link.call(ledger_member::get, request, reply), ledger_no_data);
  }

  ledger_place place_;
  threaded_service service_;
};

TEST_F(ledger_peers, a_silent_connection_is_ended) {
  raw_client silent{place_.socket()};
  ASSERT_TRUE(silent.ok());
  EXPECT_FALSE(silent.ended_within(1000));
  EXPECT_TRUE(silent.ended_within(5000));
  raw_client greeted{place_.socket()};
  ASSERT_TRUE(greeted.authenticate());
  EXPECT_TRUE(greeted.ended_within(5000));
  expect_service();
}

// Longer than a new client has for its first message.
constexpr std::chrono::milliseconds held{2'500};

TEST_F(ledger_peers, a_request_that_waits_for_a_busy_service_is_answered) {
  ledger_link link;
  ASSERT_EQ(link.ensure(), status_ok);
  std::future<int> asked;
  service_.run([&] {
    asked = std::async(std::launch::async, [&link] {
      ledger_writer request;
      request.text("/oper/nothing");
      ledger_reply reply;
      return link.call(ledger_member::get, request, reply);
    });
    EXPECT_EQ(asked.wait_for(held), std::future_status::timeout);
  });
  EXPECT_EQ(asked.get(), ledger_no_data);
}

TEST_F(ledger_peers, a_greeting_that_waits_for_a_busy_service_is_answered) {
  raw_client client{place_.socket()};
  expect_service();  // later connections are served, so this one is known
  std::future<bool> greeted;
  service_.run([&] {
    greeted = std::async(std::launch::async, [&client] { return client.authenticate(); });
    EXPECT_EQ(greeted.wait_for(held), std::future_status::timeout);
  });
  EXPECT_TRUE(greeted.get());
  EXPECT_FALSE(client.ended_within(1000)) << "it has as long as a new one";
  EXPECT_TRUE(client.ended_within(5000));
}

TEST_F(ledger_peers, nonsense_is_ended) {
  raw_client client{place_.socket()};
  client.send("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(client.ended_within(1500));
  raw_client later{place_.socket()};
  ASSERT_TRUE(later.authenticate());
  later.send(std::string(64, '\xff'));
  EXPECT_TRUE(later.ended_within(1500));
  expect_service();
}

TEST_F(ledger_peers, an_unknown_member_ends_the_connection) {
  ledger_link link;
  ledger_reply reply;
  EXPECT_EQ(link.call("Destroy", {}, reply), ledger_unreachable);
  expect_service();
}

TEST_F(ledger_peers, a_malformed_body_is_answered_and_changes_nothing) {
  ledger_link link;
  for (const char* member :
       {ledger_member::bind, ledger_member::get, ledger_member::set, ledger_member::erase,
        ledger_member::page, ledger_member::commit, ledger_member::generation, ledger_member::list,
        ledger_member::subscribe}) {
    ledger_writer request;
    request.u32(0xffffffff);
    ledger_reply reply;
    EXPECT_EQ(link.call(member, request, reply), ledger_bad_message) << member;
  }
  service_.run([] { EXPECT_TRUE(sample().verified.empty()); });
}

TEST_F(ledger_peers, an_endless_message_is_ended_early) {
#if defined(OT_SANITIZED)
  GTEST_SKIP() << "the sanitizer keeps freed memory and copies a growing buffer with every piece";
#endif
  const long before = resident_kb();
  raw_client client{place_.socket()};
  ASSERT_TRUE(client.authenticate());
  client.send(raw_message_head(100 << 20));
  const std::string piece(64 << 10, 'x');
  // The service looks at what waits between two turns of its loop, so a fast sender gets some way;
  // the message is never completed, and only the service can end this.
  std::size_t sent = 0;
  for (std::size_t last = 1; last > 0 && sent < (32U << 20); sent += last) {
    last = client.send(piece, 2000);
  }
  EXPECT_TRUE(client.ended_within(5000));
  EXPECT_LT(resident_kb() - before, 32 << 10);
  expect_service();
}

TEST_F(ledger_peers, a_message_that_stops_halfway_is_ended) {
  raw_client client{place_.socket()};
  ASSERT_TRUE(client.authenticate());
  client.send(raw_message_head(1000));
  EXPECT_TRUE(client.ended_within(10'000));
  expect_service();
}

// As many as root may have; the tests run as root, or as the service's own user.
constexpr int places = 512 + 32;

bool has_ended(const ledger_link& link) {
  pollfd state{.fd = sd_bus_get_fd(link.bus()), .events = POLLRDHUP, .revents = 0};
  return poll(&state, 1, 5000) == 1;
}

TEST_F(ledger_peers, when_every_place_is_taken_the_one_idle_longest_gives_way) {
  raise_descriptor_limit();
  std::vector<std::unique_ptr<ledger_link>> links;
  ledger_writer request;
  request.text("/oper/nothing");
  ledger_reply reply;
  for (int i = 0; i < places; ++i) {
    links.push_back(std::make_unique<ledger_link>());
    ASSERT_EQ(links.back()->call(ledger_member::get, request, reply), ledger_no_data) << i;
  }
  ASSERT_EQ(links[0]->call(ledger_member::get, request, reply), ledger_no_data);
  ledger_link newcomer;
  ASSERT_EQ(newcomer.call(ledger_member::get, request, reply), ledger_no_data);
  EXPECT_TRUE(has_ended(*links[1]));
  // Its user does not notice, and the one that was heard again is still there.
  EXPECT_EQ(links[1]->call(ledger_member::get, request, reply), ledger_no_data);
  EXPECT_TRUE(has_ended(*links[2]));
  EXPECT_EQ(links[0]->call(ledger_member::get, request, reply), ledger_no_data);
}

TEST_F(ledger_peers, who_follows_data_does_not_give_way) {
  raise_descriptor_limit();
  std::vector<ledger_subscription*> followers;
  for (int i = 0; i < places; ++i) {
    ASSERT_EQ(ledger_subscribe("/oper/", &followers.emplace_back()), 0) << i;
  }
  ledger_link newcomer;
  ledger_writer request;
  request.text("/oper/nothing");
  ledger_reply reply;
  EXPECT_EQ(newcomer.call(ledger_member::get, request, reply), ledger_busy);
  ledger_unsubscribe(followers.back());
  followers.pop_back();
  // The service learns of the end in a turn of its own.
  int status = ledger_busy;
  for (int i = 0; i < 1000 && status == ledger_busy; ++i) {
    status = newcomer.call(ledger_member::get, request, reply);
  }
  EXPECT_EQ(status, ledger_no_data);
  for (ledger_subscription* follower : followers) {
    EXPECT_EQ(ledger_subscription_wait(follower, 0, [](const ledger_notice&) {}), 0);
    ledger_unsubscribe(follower);
  }
}

TEST_F(ledger_peers, operational_data_is_the_services_alone) {
  ledger_conn* conn = ledger_get_default_conn();
  const auto one = bytes_of_numbers({1});
  service_.run([&] {
    ASSERT_EQ(ledger_item_set(ledger_get_default_conn(), "oper/x", ledger_kind::u32, one), 0);
  });
  EXPECT_EQ(ledger_item_set(conn, "oper/x", ledger_kind::u32, one), ledger_read_only);
  EXPECT_EQ(ledger_item_set(conn, "oper/y", ledger_kind::u32, one), ledger_read_only);
  EXPECT_EQ(ledger_item_delete(conn, "oper/x"), ledger_read_only);
  ledger_value value;
  EXPECT_EQ(ledger_item_get(conn, "oper/x", &value), 0);
}

TEST_F(ledger_peers, clients_cannot_fill_the_store_with_trace_flags) {
  ledger_conn* conn = ledger_get_default_conn();
  const auto one = bytes_of_numbers({1});
  const auto put = [&](int number) {
    const std::string path = "debug/flag" + std::to_string(number);
    return ledger_item_set(conn, path.c_str(), ledger_kind::u32, one);
  };
  for (int i = 0; i < 64; ++i) {
    ASSERT_EQ(put(i), 0) << i;
  }
  EXPECT_EQ(put(64), ledger_full);
  EXPECT_EQ(put(63), 0);
  EXPECT_EQ(ledger_item_delete(conn, "debug/flag0"), 0);
  EXPECT_EQ(put(64), 0);
}

// The service's thread may not use a number after the descriptor's end: other threads take it.
TEST_F(ledger_peers, a_peer_that_leaves_takes_its_descriptor_along) {
  const int before = watches_on_closed_descriptors();
  for (int i = 0; i < 100; ++i) {
    {
      ledger_link link;
      ledger_writer request;
      request.text("/oper/nothing");
      ledger_reply reply;
      ASSERT_EQ(link.call(ledger_member::get, request, reply), ledger_no_data);
    }
    // Takes the lowest free number, again and again while the service sees the end.
    for (int k = 0; k < 50; ++k) {
      const unique_fd other{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
      ASSERT_TRUE(other.valid());
    }
  }
  expect_service();
  EXPECT_EQ(watches_on_closed_descriptors(), before);
}

TEST_F(ledger_peers, a_client_killed_in_the_middle_of_a_commit_changes_nothing) {
  const ledger_proposal change = set_number("/cfg/gl/sample/thing/x/a", 1);
  ledger_writer body;
  ledger_put_proposals(body, {&change, 1});
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    raw_client client{place_.socket()};
    client.authenticate();
    client.send(raw_message_head(4 + static_cast<std::uint32_t>(body.data().size())));
    client.send({reinterpret_cast<const char*>(body.data().data()), body.data().size() / 2});
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  expect_service();  // served after the dead client's bytes
  service_.run([] {
    EXPECT_TRUE(sample().verified.empty());
    EXPECT_TRUE(sample().applied.empty());
    ledger_value value;
    EXPECT_EQ(ledger_item_get(ledger_get_default_conn(), "cfg/gl/sample/thing/x/a", &value),
              ledger_no_data);
  });
}

}  // namespace
}  // namespace ot::test
