// The event publisher's socket as strangers and slow readers meet it, and how few packets a burst
// of events is.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/common/event_filters.h"
#include "platform/common/root_path.h"
#include "platform/event_manager.h"
#include "platform/event_publisher.h"
#include "platform/event_subscriber.h"
#include "platform/ledger_status.h"
#include "platform/linux/events/protocol.h"
#include "platform/linux/events/server.h"
#include "platform/linux/loop/listener.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"

namespace ot::testing {
namespace {

using ::testing::ElementsAre;

constexpr std::uint32_t event_type = 372;

class event_socket : public ::testing::Test {
 protected:
  void SetUp() override {
    copied_.clear();
    copy_result_ = 0;
    char root[] = "/tmp/ot-events-XXXXXX";
    ASSERT_NE(mkdtemp(root), nullptr);
    root_ = root;
    setenv("OT_ROOT", root, 1);
    ASSERT_EQ(evm_create(&manager_), 0);
    evdl_registration registration;
    registration.publisher.assign("OBJECT_TRACKING");
    registration.kind_count = 1;
    registration.kind.type = event_type;
    registration.kind.subscription_size = 48;
    registration.kind.match = match;
    registration.kind.copy_subscriptions = copy;
    ASSERT_EQ(evdl_publisher_register(manager_, registration, &publisher_, 1), 0);
  }
  void TearDown() override {
    event_publisher_close();
    evm_destroy(manager_);
    unsetenv("OT_ROOT");
    std::filesystem::remove_all(root_);
  }

  // Runs `client` on a thread of its own, and the publisher's loop until it is done.
  void serve(const std::function<void()>& client) {
    bool done = false;
    std::thread thread([&] {
      client();
      evm_post(
          manager_, [](void* flag) { *static_cast<bool*>(flag) = true; }, &done);
    });
    while (!done) {
      EXPECT_EQ(evm_block(manager_), 0);
      evm_dispatch(manager_);
    }
    thread.join();
  }
  // Publishes in one handler.
  void publish(const std::vector<std::string>& tracks, std::uint32_t state) {
    for (const std::string& track : tracks) {
      const evdl_track_record event{static_cast<std::uint32_t>(track.size()), 0,
                                    fixed_text<32>(track), state};
      const event_packet_record record{fixed_text<32>(track), state};
      EXPECT_EQ(evdl_event_publish(publisher_, event_type, 1, sizeof event, &event, sizeof record,
                                   &record),
                0);
    }
    serve([] {});
  }
  evdl_subscriber* subscribe(const std::vector<evdl_filter>& filters, int expected = 0) {
    evdl_subscriber* subscriber = nullptr;
    serve([&] { EXPECT_EQ(evdl_subscribe(filters, &subscriber), expected); });
    return subscriber;
  }
  unique_fd connect_raw() const {
    unique_fd connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address;
    EXPECT_TRUE(unix_address(root_path(event_socket_path), &address));
    EXPECT_EQ(connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return connection;
  }
  // What is read within 5 s: the length of the next packet, 0 at the end, -1 otherwise.
  static ssize_t read_packet(const unique_fd& connection) {
    static char packet[128 * 1024];
    pollfd readable{connection.get(), POLLIN, 0};
    return poll(&readable, 1, 5'000) == 1
               ? recv(connection.get(), packet, sizeof packet, MSG_DONTWAIT)
               : -1;
  }

  static std::vector<std::string> received(evdl_subscriber* subscriber) {
    std::vector<std::string> events;
    EXPECT_EQ(evdl_receive(subscriber, 0,
                           [&](const evdl_track_event& event) {
                             events.push_back(event.track + "=" + std::to_string(event.state));
                           }),
              0);
    return events;
  }

  static inline std::vector<std::string> copied_;
  static inline int copy_result_ = 0;

 private:
  static int match(const void* subscription, const void* event) {
    const auto& wanted = *static_cast<const evdl_track_record*>(subscription);
    const auto& given = *static_cast<const evdl_track_record*>(event);
    return wanted.name == given.name && (wanted.any_state != 0 || wanted.state == given.state);
  }
  static int copy(std::uint32_t count, const void* source, std::uint32_t stride, std::uint32_t*,
                  std::uint32_t*, std::uint32_t from_events, void* destination) {
    EXPECT_NE(destination, nullptr);
    EXPECT_EQ(from_events, 1U);
    for (std::uint32_t i = 0; i < count; ++i) {
      const auto* record = static_cast<const char*>(source) + i * stride;
      copied_.emplace_back(reinterpret_cast<const evdl_track_record*>(record)->name.view());
    }
    return copy_result_;
  }

  std::string root_;
  evm* manager_ = nullptr;
  evdl_publisher* publisher_ = nullptr;
};

TEST_F(event_socket, notifies_the_publisher_of_the_subscriptions) {
  evdl_subscriber* subscriber = subscribe({{"a", true, 0}, {"b", false, 1}});
  EXPECT_THAT(copied_, ElementsAre("a", "b"));
  publish({"a", "b", "c"}, 2);
  publish({"b"}, 1);
  EXPECT_THAT(received(subscriber), ElementsAre("a=2", "b=1"));
  evdl_unsubscribe(subscriber);
}

TEST_F(event_socket, passes_on_why_the_publisher_refused) {
  copy_result_ = no_memory;
  EXPECT_EQ(subscribe({{"a", true, 0}}, no_memory), nullptr);
}

TEST_F(event_socket, sends_a_burst_as_one_packet) {
  const unique_fd connection = connect_raw();
  const event_subscription_head everything;
  ASSERT_EQ(send(connection.get(), &everything, sizeof everything, 0), 8);
  serve([&] { EXPECT_EQ(read_packet(connection), 4) << "the answer"; });
  publish(std::vector<std::string>(1500, "track"), 2);
  EXPECT_EQ(read_packet(connection), 1500 * 36);
}

TEST_F(event_socket, closes_on_a_malformed_subscription) {
  struct {
    const char* what;
    event_subscription_head head;
    std::size_t length;
  } const rows[] = {
      {"half a head", {}, 4},
      {"another version", {7, 0}, 8},
      {"fewer filters than counted", {event_protocol_version, 2}, 8 + 44},
      {"more filters than counted", {event_protocol_version, 1}, 8 + 3 * 44},
      {"too many filters", {event_protocol_version, event_filter_limit + 1}, 8},
      {"a count that overflows", {event_protocol_version, 0xFFFFFFFF}, 8},
  };
  for (const auto& row : rows) {
    const unique_fd connection = connect_raw();
    char packet[1024] = {};
    std::memcpy(packet, &row.head, sizeof row.head);
    ASSERT_EQ(send(connection.get(), packet, row.length, 0), static_cast<ssize_t>(row.length));
    serve([&] { EXPECT_EQ(read_packet(connection), 0) << row.what; });
  }
}

TEST_F(event_socket, reads_a_name_without_an_end_within_its_field) {
  const unique_fd connection = connect_raw();
  char packet[8 + 44];
  std::memset(packet, 'x', sizeof packet);
  const event_subscription_head head{event_protocol_version, 1};
  std::memcpy(packet, &head, sizeof head);
  ASSERT_EQ(send(connection.get(), packet, sizeof packet, 0), 52);
  serve([&] { EXPECT_EQ(read_packet(connection), 4); });
  EXPECT_THAT(copied_, ElementsAre(std::string(31, 'x')));
}

TEST_F(event_socket, closes_on_a_subscriber_that_says_nothing) {
  const unique_fd connection = connect_raw();
  serve([&] { EXPECT_EQ(read_packet(connection), 0); });
}

TEST_F(event_socket, cuts_off_who_does_not_read_and_serves_the_others) {
  evdl_subscriber* slow = subscribe({});
  evdl_subscriber* reader = subscribe({});
  const std::vector<std::string> burst(1500, "track");
  std::size_t read = 0;
  for (int i = 0; i < 20; ++i) {
    publish(burst, 1);
    read += received(reader).size();
  }
  EXPECT_EQ(read, 20 * burst.size());
  std::size_t of_slow = 0;
  EXPECT_EQ(evdl_receive(slow, 0, [&](const evdl_track_event&) { ++of_slow; }), ledger_unreachable);
  EXPECT_GT(of_slow, 0U);
  EXPECT_LT(of_slow, read);
  evdl_unsubscribe(slow);
  evdl_unsubscribe(reader);
}

TEST_F(event_socket, catches_up_with_who_reads_late) {
  evdl_subscriber* late = subscribe({});
  const std::vector<std::string> burst(1500, "track");
  for (int i = 0; i < 8; ++i) {
    publish(burst, 1);
  }
  std::size_t read = 0;
  serve([&] {
    while (read < 8 * burst.size() &&
           evdl_receive(late, 5'000, [&](const evdl_track_event&) { ++read; }) == 0) {
    }
  });
  EXPECT_EQ(read, 8 * burst.size());
  evdl_unsubscribe(late);
}

// More than one turn of the loop sends.
TEST_F(event_socket, a_burst_comes_whole_and_in_order_to_many_subscribers) {
  raise_descriptor_limit();
  std::vector<std::string> burst;
  for (int i = 0; i < 1500; ++i) burst.push_back("t" + std::to_string(i));
  std::vector<evdl_subscriber*> subscribers;
  for (int i = 0; i < 400; ++i) {
    subscribers.push_back(i % 8 == 7 ? subscribe({{"t7", true, 0}}) : subscribe({}));
  }
  for (const std::uint32_t state : {1U, 2U}) publish(burst, state);
  serve([&] {
    for (std::size_t i = 0; i < subscribers.size(); ++i) {
      const std::size_t wanted = i % 8 == 7 ? 2 : 2 * burst.size();
      std::vector<std::string> names;
      while (names.size() < wanted &&
             evdl_receive(subscribers[i], 5'000, [&](const evdl_track_event& event) {
               names.push_back(event.track + "=" + std::to_string(event.state));
             }) == 0) {
      }
      ASSERT_EQ(names.size(), wanted) << i;
      for (std::size_t at = 0; at < wanted && wanted > 2; ++at) {
        ASSERT_EQ(names[at], burst[at % burst.size()] + (at < burst.size() ? "=1" : "=2")) << i;
      }
    }
  });
  for (evdl_subscriber* subscriber : subscribers) evdl_unsubscribe(subscriber);
}

TEST_F(event_socket, refuses_more_subscribers_than_it_has_room_for) {
  raise_descriptor_limit();
  std::vector<evdl_subscriber*> subscribers;
  for (unsigned i = 0; i < event_subscriber_limit; ++i) {
    subscribers.push_back(subscribe({{"t", true, 0}}));
  }
  EXPECT_EQ(subscribe({}, ledger_busy), nullptr);
  publish({"t"}, 1);
  for (evdl_subscriber* subscriber : subscribers) {
    EXPECT_THAT(received(subscriber), ElementsAre("t=1"));
  }
  evdl_unsubscribe(subscribers.back());
  subscribers.back() = subscribe({});
  for (evdl_subscriber* subscriber : subscribers) {
    evdl_unsubscribe(subscriber);
  }
}

TEST_F(event_socket, who_has_not_subscribed_gives_way) {
  raise_descriptor_limit();
  std::vector<unique_fd> silent(event_subscriber_limit);
  for (unique_fd& connection : silent) {
    connection = connect_raw();
    serve([] {});
  }
  evdl_unsubscribe(subscribe({}));
  EXPECT_EQ(read_packet(silent.front()), 0) << "the end of the longest silent one";
}

TEST_F(event_socket, an_end_before_the_answer_is_the_publisher_s_end) {
  event_publisher_close();
  sockaddr_un address;
  ASSERT_TRUE(unix_address(root_path(event_socket_path), &address));
  unlink(address.sun_path);
  unique_fd listener(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 1), 0);
  std::thread dying([&listener] {
    const unique_fd connection(accept(listener.get(), nullptr, nullptr));
    listener.reset();
  });
  evdl_subscriber* subscriber = nullptr;
  EXPECT_EQ(evdl_subscribe({}, &subscriber), ledger_unreachable);
  dying.join();
}

TEST_F(event_socket, a_subscriber_notices_the_publisher_s_end) {
  evdl_subscriber* subscriber = subscribe({});
  event_publisher_close();
  EXPECT_EQ(evdl_receive(subscriber, 5'000, [](const evdl_track_event&) { FAIL(); }),
            ledger_unreachable);
  evdl_unsubscribe(subscriber);
  EXPECT_EQ(subscribe({}, ledger_unreachable), nullptr);
}

}  // namespace
}  // namespace ot::testing
