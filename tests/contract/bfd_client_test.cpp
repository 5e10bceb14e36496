// The BFD client on either platform: requests and their acknowledgements, states, an engine that
// comes and goes.
#include "platform/bfd_status.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/status.h"
#include "tests/contract/bfd_test_bed.h"
#include "tests/contract/contract_test.h"

namespace ot::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using reported_list = std::vector<std::string>;

constexpr const char* peer = "10.0.0.2";
constexpr const char* other = "10.0.0.3";

reported_list reported;  // by the client under test
std::uint32_t reported_handle = 0;
// Numbers go on from one client to the next; the tests count from 1.
std::optional<std::uint32_t> number_before;

std::string text_of(const bfd_address& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, address.bytes, text, sizeof text);
  return text;
}

void on_bound(const bfdc_bind_result* result) {
  reported.push_back("bound " + std::to_string(result->result));
}
void on_connection(const bfdc_connection_status* status) {
  reported.push_back("connection " + std::to_string(status->status));
}
void on_state(const bfdc_event* event) {
  reported_handle = event->ifhandle;
  reported.push_back((event->session_state == 0 ? "up " : "down ") + text_of(event->destination));
}
void on_request(const bfdc_request_result* result) {
  reported_handle = result->ifhandle;
  const bool made = result->event == bfdc_request_created;
  reported.push_back(std::to_string(result->sequence - number_before.value_or(0)) +
                     (made ? " made " : " given up ") + text_of(result->destination) +
                     (result->error == 0 ? "" : " refused") +
                     (result->context == &reported ? "" : " of somebody"));
}

class bfd_client_contract : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    bed = make_bfd_test_bed(manager());
    reported.clear();
    number_before.reset();
  }
  void TearDown() override {
    bfdc_unbind();
    bed.reset();
    contract_test::TearDown();
  }

  void bind() {
    bfdc_bind_record record;
    record.manager = manager();
    record.client_name.assign("a test");
    record.state_changed = on_state;
    record.bound = on_bound;
    record.connection = on_connection;
    record.request_done = on_request;
    ASSERT_EQ(bfdc_bind_nb(record, &reported), 0);
    expect("bound 0", "connection 1");
  }
  void connect() {
    bind();
    bed->start();
    wait_engine(true);
  }
  void wait_engine(bool running) {
    EXPECT_TRUE(run_until([running] { return bfdc_engine().running == running; })) << running;
  }
  // What is reported next is exactly this, in this order.
  template <typename... Lines>
  void expect(Lines... lines) {
    EXPECT_TRUE(run_until([] { return reported.size() >= sizeof...(Lines); }));
    EXPECT_THAT(std::exchange(reported, {}), ElementsAre(lines...));
  }

  bfdc_session_request request(const char* address) const {
    bfdc_session_request made;
    made.kind = 1;
    made.ifhandle = bed->handle();
    made.interface.assign(bed_interface);
    made.destination.family = bfd_family_ipv4;
    EXPECT_EQ(inet_pton(AF_INET, address, made.destination.bytes), 1);
    made.source.family = bfd_family_ipv4;
    made.rate = 300;
    made.debounce_count = 3;
    made.context = &reported;
    return made;
  }
  // The number of the request.
  std::uint32_t create(const char* address) {
    bfdc_session_answer answer;
    EXPECT_EQ(bfdc_session_create_nb(request(address), &answer), 0);
    EXPECT_EQ(answer.result, 0);
    EXPECT_NE(answer.session_id, 0U);
    return counted(answer);
  }
  std::uint32_t give_up(const char* address) {
    bfdc_session_answer answer;
    EXPECT_EQ(bfdc_session_delete_unconfig_nb(request(address), &answer), 0);
    EXPECT_EQ(answer.result, 0);
    return counted(answer);
  }
  static std::uint32_t counted(const bfdc_session_answer& answer) {
    if (!number_before) {
      number_before = answer.sequence - 1;
    }
    return answer.sequence - *number_before;
  }

  std::unique_ptr<bfd_test_bed> bed;
};

TEST_F(bfd_client_contract, is_connected_from_its_bind_on_and_tells_whether_an_engine_runs) {
  bind();
  EXPECT_FALSE(bfdc_engine().running);
  bed->start();
  wait_engine(true);
  EXPECT_NE(bfdc_engine().since, 0);
  bed->end();
  wait_engine(false);
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(bfd_client_contract, a_session_can_be_asked_for_and_given_up_without_an_engine) {
  bind();
  bed->answer(peer);
  bed->answer(other);
  create(peer);
  create(other);
  expect("1 made 10.0.0.2", "2 made 10.0.0.3");
  give_up(other);
  expect("3 given up 10.0.0.3");
  bed->start();
  expect("up 10.0.0.2");
  EXPECT_EQ(bed->sessions(), 1U);
}

TEST_F(bfd_client_contract, a_session_is_told_of_while_it_is_wanted) {
  connect();
  const bfd_address destination = request(peer).destination;
  bfdc_session_status told;
  EXPECT_FALSE(bfdc_session(bed->handle(), destination, &told));
  bed->answer(peer);
  create(peer);
  expect("1 made 10.0.0.2", "up 10.0.0.2");
  ASSERT_TRUE(bfdc_session(bed->handle(), destination, &told));
  EXPECT_EQ(told.state, bfd_state_up);
  bed->fall_silent(peer);
  expect("down 10.0.0.2");
  ASSERT_TRUE(bfdc_session(bed->handle(), destination, &told));
  EXPECT_EQ(told.state, bfd_state_down);
  give_up(peer);
  expect("2 given up 10.0.0.2");
  EXPECT_FALSE(bfdc_session(bed->handle(), destination, &told));
}

TEST_F(bfd_client_contract,
       an_acknowledgement_comes_before_the_state_and_carries_the_requests_number) {
  connect();
  bed->answer(peer);
  EXPECT_EQ(create(peer), 1U);
  expect("1 made 10.0.0.2", "up 10.0.0.2");
  EXPECT_EQ(reported_handle, bed->handle());
  EXPECT_EQ(create(other), 2U);
  expect("2 made 10.0.0.3");
  EXPECT_TRUE(run_until([this] { return bed->sessions() == 2; }));
}

TEST_F(bfd_client_contract, states_follow_the_peer) {
  connect();
  create(peer);
  expect("1 made 10.0.0.2");
  EXPECT_TRUE(run_until([this] { return bed->sessions() == 1; }));
  bed->answer(peer);
  expect("up 10.0.0.2");
  bed->fall_silent(peer);
  expect("down 10.0.0.2");
}

TEST_F(bfd_client_contract, a_session_asked_for_twice_is_one_and_is_reported_again) {
  connect();
  bed->answer(peer);
  create(peer);
  expect("1 made 10.0.0.2", "up 10.0.0.2");
  create(peer);
  expect("2 made 10.0.0.2", "up 10.0.0.2");
  EXPECT_EQ(bed->sessions(), 1U);
  give_up(peer);
  expect("3 given up 10.0.0.2");
  EXPECT_TRUE(run_until([this] { return bed->sessions() == 0; }));
}

TEST_F(bfd_client_contract, giving_up_is_acknowledged_also_for_what_is_not_there) {
  connect();
  EXPECT_EQ(give_up(peer), 1U);
  expect("1 given up 10.0.0.2");
}

TEST_F(bfd_client_contract, an_engine_that_ends_takes_its_sessions_down_and_gets_them_again) {
  connect();
  bed->answer(peer);
  create(peer);
  expect("1 made 10.0.0.2", "up 10.0.0.2");
  create(other);
  expect("2 made 10.0.0.3");
  bed->end();
  expect("down 10.0.0.2");
  bed->start();
  expect("up 10.0.0.2");
  EXPECT_TRUE(run_until([this] { return bed->sessions() == 2; }));
}

TEST_F(bfd_client_contract, what_is_given_up_while_the_engine_is_away_is_not_asked_for_again) {
  connect();
  bed->answer(peer);
  bed->answer(other);
  create(peer);
  expect("1 made 10.0.0.2", "up 10.0.0.2");
  create(other);
  expect("2 made 10.0.0.3", "up 10.0.0.3");
  bed->end();
  expect("down 10.0.0.2", "down 10.0.0.3");
  EXPECT_EQ(give_up(peer), 3U);
  expect("3 given up 10.0.0.2");
  bed->start();
  expect("up 10.0.0.3");
  EXPECT_EQ(bed->sessions(), 1U);
}

TEST_F(bfd_client_contract, requests_out_of_bounds_are_not_taken) {
  connect();
  const auto refused = [this](auto change) {
    bfdc_session_request asked = request(peer);
    change(asked);
    bfdc_session_answer answer;
    EXPECT_EQ(bfdc_session_create_nb(asked, &answer), 0);
    EXPECT_EQ(answer.sequence, 0U);
    return answer.result;
  };
  EXPECT_EQ(refused([](auto& asked) { asked.rate = bfdc_rate_min - 1; }), invalid_argument);
  EXPECT_EQ(refused([](auto& asked) { asked.rate = bfdc_rate_max + 1; }), invalid_argument);
  EXPECT_EQ(refused([](auto& asked) { asked.debounce_count = 0; }), invalid_argument);
  EXPECT_EQ(refused([](auto& asked) { asked.debounce_count = bfdc_debounce_max + 1; }),
            invalid_argument);
  EXPECT_EQ(create(peer), 1U);
  expect("1 made 10.0.0.2");
}

TEST_F(bfd_client_contract, an_ended_client_takes_no_request_and_is_notified_of_nothing) {
  connect();
  create(peer);
  expect("1 made 10.0.0.2");
  bfdc_unbind();
  bfdc_unbind();
  bfdc_session_answer answer;
  EXPECT_NE(bfdc_session_create_nb(request(other), &answer), 0);
  EXPECT_NE(bfdc_session_delete_unconfig_nb(request(peer), &answer), 0);
  bed->end();
  let_pass(manager(), std::chrono::milliseconds(50));
  EXPECT_THAT(reported, IsEmpty());
}

}  // namespace
}  // namespace ot::contract
