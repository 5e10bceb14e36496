// Events from a publisher to its subscribers: who gets which, in which order, and what happens to
// one that does not read.
#include <cstring>
#include <string>
#include <vector>

#include "platform/event_publisher.h"
#include "platform/ledger_status.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

constexpr std::uint32_t event_type = 372;
constexpr std::uint16_t entry_size = 48;

struct published {
  fixed_text<32> name;
  std::uint32_t state = 0;
};

// Names that the copy callback was handed, in order.
std::vector<std::string>* copied = nullptr;

int copy_names(std::uint32_t count, const void* source, std::uint32_t /*stride*/,
               std::uint32_t* out_name_size, std::uint32_t* out_state_size,
               std::uint32_t from_events, void* destination) {
  EXPECT_NE(from_events, 0u);
  const auto* records = static_cast<const evdl_track_record*>(source);
  for (std::uint32_t i = 0; i < count; ++i) {
    copied->emplace_back(records[i].name.view());
  }
  std::memset(destination, 0, std::size_t{count} * entry_size);
  *out_name_size = 32;
  *out_state_size = 16;
  return 0;
}

int match(const void* subscription, const void* event) {
  const auto* wanted = static_cast<const evdl_track_record*>(subscription);
  const auto* given = static_cast<const evdl_track_record*>(event);
  return wanted->name_length == given->name_length && wanted->name == given->name &&
                 (wanted->any_state != 0 || wanted->state == given->state)
             ? 1
             : 0;
}

class events_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    copied = &copied_;
    evdl_registration registration;
    registration.publisher.assign("OBJECT_TRACKING");
    registration.kind_count = 1;
    registration.kind.copy_subscriptions = copy_names;
    registration.kind.match = match;
    registration.kind.type = event_type;
    registration.kind.name.assign("event_register_track");
    registration.kind.subscription_size = entry_size;
    ASSERT_EQ(evdl_publisher_register(manager(), registration, &publisher_, 1), 0);
  }
  void TearDown() override {
    for (evdl_subscriber* subscriber : subscribers_) {
      evdl_unsubscribe(subscriber);
    }
    contract_test::TearDown();
  }

  evdl_subscriber* subscriber(std::vector<evdl_filter> filters) {
    evdl_subscriber* made = nullptr;
    EXPECT_EQ(subscribe(manager(), filters, &made), 0);
    subscribers_.push_back(made);
    return made;
  }

  void publish(std::string_view track, std::uint32_t state) {
    evdl_track_record source{static_cast<std::uint32_t>(track.size()), 0, {}, state};
    source.name.assign(track);
    const published out{source.name, state};
    ASSERT_EQ(
        evdl_event_publish(publisher_, event_type, 1, sizeof source, &source, sizeof out, &out), 0);
  }

  // What came, as "track=state".
  std::vector<std::string> received(evdl_subscriber* from, std::size_t count) {
    int status = -1;
    std::vector<std::string> texts;
    for (const evdl_track_event& event : receive(manager(), from, count, &status)) {
      texts.push_back(event.track + "=" + std::to_string(event.state));
    }
    EXPECT_EQ(status, 0);
    return texts;
  }

  evdl_publisher* publisher_ = nullptr;
  std::vector<evdl_subscriber*> subscribers_;
  std::vector<std::string> copied_;
};

using texts = std::vector<std::string>;

TEST_F(events_contract, a_subscriber_without_filters_gets_everything_in_order) {
  evdl_subscriber* all = subscriber({});
  publish("a", 1);
  publish("b", 2);
  publish("a", 0);
  EXPECT_EQ(received(all, 3), (texts{"a=1", "b=2", "a=0"}));
}

TEST_F(events_contract, a_filter_takes_one_track_only_and_minds_the_case) {
  evdl_subscriber* one = subscriber({{"wan", true, 0}});
  publish("Wan", 1);
  publish("wan2", 1);
  publish("wan", 2);
  publish("wa", 1);
  publish("wan", 1);
  EXPECT_EQ(received(one, 2), (texts{"wan=2", "wan=1"}));
}

TEST_F(events_contract, a_filter_may_ask_for_one_state) {
  evdl_subscriber* downs = subscriber({{"wan", false, 2}});
  publish("wan", 1);
  publish("wan", 2);
  publish("wan", 0);
  publish("wan", 2);
  EXPECT_EQ(received(downs, 2), (texts{"wan=2", "wan=2"}));
}

TEST_F(events_contract, several_filters_give_an_event_once) {
  evdl_subscriber* both = subscriber({{"a", true, 0}, {"b", false, 1}, {"a", false, 1}});
  publish("a", 1);
  publish("b", 2);
  publish("b", 1);
  EXPECT_EQ(received(both, 2), (texts{"a=1", "b=1"}));
}

TEST_F(events_contract, every_subscriber_gets_its_own) {
  evdl_subscriber* all = subscriber({});
  evdl_subscriber* only_b = subscriber({{"b", true, 0}});
  publish("a", 1);
  publish("b", 1);
  EXPECT_EQ(received(all, 2), (texts{"a=1", "b=1"}));
  EXPECT_EQ(received(only_b, 1), (texts{"b=1"}));
}

TEST_F(events_contract, the_publisher_is_notified_of_the_subscriptions) {
  subscriber({{"a", true, 0}, {"b", false, 1}});
  EXPECT_EQ(copied_, (texts{"a", "b"}));
}

TEST_F(events_contract, a_batch_of_events_stays_in_order) {
  evdl_subscriber* all = subscriber({});
  std::vector<evdl_track_record> sources;
  std::vector<published> records;
  texts expected;
  for (std::uint32_t i = 0; i < 100; ++i) {
    const std::string name = "t" + std::to_string(i);
    sources.push_back({static_cast<std::uint32_t>(name.size()), 0, fixed_text<32>{name}, i % 3});
    records.push_back({fixed_text<32>{name}, i % 3});
    expected.push_back(name + "=" + std::to_string(i % 3));
  }
  ASSERT_EQ(evdl_event_publish(publisher_, event_type, 100, sizeof sources[0], sources.data(),
                               sizeof records[0], records.data()),
            0);
  EXPECT_EQ(received(all, 100), expected);
}

TEST_F(events_contract, another_event_type_is_refused) {
  const evdl_track_record source;
  const published out;
  EXPECT_NE(evdl_event_publish(publisher_, 373, 1, sizeof source, &source, sizeof out, &out), 0);
}

TEST_F(events_contract, a_subscriber_that_does_not_read_is_cut_off_and_the_others_go_on) {
  constexpr std::size_t rounds = 60;
  constexpr std::size_t burst = 1000;
  evdl_subscriber* stuck = subscriber({});
  evdl_subscriber* reader = subscriber({{"x", true, 0}});
  for (std::size_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < burst; ++i) {
      publish("noise", 1);
    }
    let_pass(manager(), std::chrono::milliseconds{1});
  }
  publish("x", 2);
  EXPECT_EQ(received(reader, 1), (texts{"x=2"}));
  int status = 0;
  const auto events = receive(manager(), stuck, rounds * burst + 1, &status);
  EXPECT_EQ(status, ledger_unreachable);
  EXPECT_LT(events.size(), rounds * burst);
}

TEST_F(events_contract, unsubscribing_leaves_the_others_alone) {
  evdl_subscriber* leaver = subscriber({});
  evdl_subscriber* stayer = subscriber({});
  publish("a", 1);
  EXPECT_EQ(received(leaver, 1), (texts{"a=1"}));
  std::erase(subscribers_, leaver);
  evdl_unsubscribe(leaver);
  publish("b", 2);
  EXPECT_EQ(received(stayer, 2), (texts{"a=1", "b=2"}));
}

}  // namespace

TEST(events_without_publisher_contract, subscribing_says_that_nobody_is_there) {
  start();
  evm* manager = nullptr;
  ASSERT_EQ(evm_create(&manager), 0);
  evdl_subscriber* subscriber = nullptr;
  EXPECT_EQ(subscribe(manager, {}, &subscriber), ledger_unreachable);
  EXPECT_EQ(subscriber, nullptr);
  finish();
  evm_destroy(manager);
}

}  // namespace ot::contract
