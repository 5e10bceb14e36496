// The BFD client and an engine that does what it should: sessions made, given up, lost and found
// again.
#include <utility>

#include "platform/status.h"
#include "tests/contract/linux/bfd_client_fixture.h"

namespace ot::testing {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using contract::let_pass;

class bfd_client_linux : public bfd_client_fixture {};

TEST_F(bfd_client_linux, the_subscription_is_for_states_and_sessions) {
  start();
  ASSERT_EQ(engine().requests().size(), 1U);
  const engine_request& request = engine().requests()[0];
  std::uint64_t mask = 0;
  ASSERT_EQ(request.payload.size(), sizeof mask);
  std::memcpy(&mask, request.payload.data(), sizeof mask);
  EXPECT_EQ(request.type, 4);
  EXPECT_NE(request.id, 0);
  EXPECT_EQ(mask, 3U);
}

TEST_F(bfd_client_linux, the_engine_does_not_run_before_it_has_answered_the_subscription) {
  engine().react([](fake_bfdd&, const engine_request&) {});
  engine().listen();
  ASSERT_TRUE(run_until([&] { return engine().requests().size() == 1; }));
  let_pass(manager(), 50ms);
  EXPECT_FALSE(bfdc_engine().running);
  engine().respond(engine().requests()[0].id, true);
  wait_engine(true);
  EXPECT_EQ(reported(), reported_list{});
}

TEST_F(bfd_client_linux, an_engine_that_refuses_the_subscription_is_tried_again) {
  engine().react([](fake_bfdd& bfdd, const engine_request& request) {
    bfdd.respond(request.id, bfdd.connections() > 1);
  });
  start();
  EXPECT_EQ(engine().connections(), 2U);
}

TEST_F(bfd_client_linux, a_session_is_asked_for_with_all_that_names_it) {
  start();
  ASSERT_EQ(create(1, 50, 4), 0);
  ASSERT_EQ(wait_reported(1), reported_list{"created 1"});
  ASSERT_TRUE(run_until([&] { return !label(1).empty(); }));
  const std::vector<engine_request> asked = engine().requests(2);
  ASSERT_EQ(asked.size(), 1U);
  json peer = asked[0].peer("ipv4");
  const std::string label = peer.at("label");
  EXPECT_LE(label.size(), 31U);
  peer.erase("label");
  EXPECT_EQ(peer, (json{{"peer-address", "10.0.0.1"},
                        {"local-interface", "v1"},
                        {"detect-multiplier", 4},
                        {"receive-interval", 50},
                        {"transmit-interval", 50},
                        {"create-only", true}}));
}

TEST_F(bfd_client_linux, changes_of_state_are_reported_once) {
  start();
  bring_up(1);
  for (const char* state : {"up", "down", "init", "adm-down", "up"}) {
    engine().set_state(label(1), state);
  }
  EXPECT_EQ(wait_reported(2), (reported_list{"down 1", "up 1"}));
}

TEST_F(bfd_client_linux, a_session_is_given_up_by_its_label) {
  start();
  bring_up(1);
  const std::string label = this->label(1);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(wait_reported(1), reported_list{"gone 1"});
  ASSERT_TRUE(run_until([&] { return engine().sessions().empty(); }));
  EXPECT_EQ(engine().requests(3).at(0).payload, json({{"label", {{{"label", label}}}}}).dump());
  EXPECT_EQ(reported(), reported_list{});
}

TEST_F(bfd_client_linux, giving_up_what_is_not_there_is_acknowledged) {
  start();
  ASSERT_EQ(remove(7), 0);
  EXPECT_EQ(wait_reported(1), reported_list{"gone 7"});
  EXPECT_EQ(engine().requests().size(), 1U);
}

TEST_F(bfd_client_linux, a_session_asked_for_twice_is_one) {
  start();
  bring_up(1);
  ASSERT_EQ(create(1), 0);
  EXPECT_EQ(wait_reported(2), (reported_list{"created 1", "up 1"}));
  EXPECT_EQ(engine().requests(2).size(), 1U);
}

TEST_F(bfd_client_linux, another_rate_makes_another_session) {
  start();
  bring_up(1);
  const std::string before = label(1);
  ASSERT_EQ(create(1, 100), 0);
  EXPECT_EQ(wait_reported(2), (reported_list{"down 1", "created 1"}));
  ASSERT_TRUE(run_until([&] { return !label(1).empty() && label(1) != before; }));
  ASSERT_EQ(engine().sessions().size(), 1U);
  EXPECT_NE(label(1), before);
  EXPECT_EQ(engine().sessions().at(label(1)).at("transmit-interval"), 100);
}

TEST_F(bfd_client_linux, a_session_given_up_and_asked_for_again_at_once_is_a_new_one) {
  start();
  bring_up(1);
  const std::string before = label(1);
  ASSERT_EQ(remove(1), 0);
  ASSERT_EQ(create(1), 0);
  EXPECT_EQ(wait_reported(2), (reported_list{"gone 1", "created 1"}));
  ASSERT_TRUE(run_until([&] { return !label(1).empty() && label(1) != before; }));
  EXPECT_EQ(engine().sessions().size(), 1U);
}

TEST_F(bfd_client_linux, requests_that_the_engine_would_cut_or_misread_are_refused) {
  start();
  EXPECT_EQ(create(1, bfdc_rate_min - 1), invalid_argument);
  EXPECT_EQ(create(1, bfdc_rate_max + 1), invalid_argument);
  EXPECT_EQ(create(1, 300, 0), invalid_argument);
  EXPECT_EQ(create(1, 300, bfdc_debounce_max + 1), invalid_argument);
  for (const bfd_address& address :
       {bfd_address{bfd_family_ipv4, {}}, bfd_address{bfd_family_ipv4, {224, 0, 0, 1}},
        bfd_address{10, {10, 0, 0, 1}}}) {
    bfdc_session_request request;
    request.interface.assign("v1");
    request.destination = address;
    request.rate = 300;
    request.debounce_count = 3;
    bfdc_session_answer answer;
    ASSERT_EQ(bfdc_session_create_nb(request, &answer), 0);
    EXPECT_EQ(answer.result, invalid_argument);
  }
  make(2);
  EXPECT_EQ(engine().requests(2).size(), 1U);
}

TEST_F(bfd_client_linux, an_interface_without_a_name_is_refused) {
  start();
  bfdc_session_request request;
  request.ifhandle = 1'000'000;
  request.destination = {bfd_family_ipv4, {10, 0, 0, 1}};
  request.rate = 300;
  request.debounce_count = 3;
  bfdc_session_answer answer;
  ASSERT_EQ(bfdc_session_create_nb(request, &answer), 0);
  EXPECT_EQ(answer.result, invalid_argument);
  request.ifhandle = 1;  // the loopback's
  ASSERT_EQ(bfdc_session_create_nb(request, &answer), 0);
  ASSERT_TRUE(run_until([&] { return engine().requests(2).size() == 1; }));
  EXPECT_EQ(engine().requests(2)[0].peer("ipv4").at("local-interface"), "lo");
  reported();
}

TEST_F(bfd_client_linux, requests_wait_for_the_engine) {
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(create(2), 0);
  ASSERT_EQ(remove(2), 0);
  EXPECT_EQ(wait_reported(3), (reported_list{"created 1", "created 2", "gone 2"}));
  start();
  ASSERT_TRUE(run_until([&] { return !label(1).empty(); }));
  EXPECT_EQ(engine().requests(2).size(), 1U);
}

TEST_F(bfd_client_linux, many_sessions_keep_few_requests_under_way) {
  start();
  std::size_t under_way = 0;
  std::size_t most = 0;
  std::vector<engine_request> held;
  engine().react([&](fake_bfdd&, const engine_request& request) {
    held.push_back(request);
    most = std::max(most, ++under_way);
  });
  for (unsigned number = 1; number <= 250; ++number) {
    ASSERT_EQ(create(number), 0);
  }
  EXPECT_EQ(wait_reported(250).size(), 250U);
  while (engine().sessions().size() < 250) {
    ASSERT_TRUE(run_until([&] { return !held.empty(); }));
    for (const engine_request& request : std::exchange(held, {})) {
      engine().obey(request);
      --under_way;
    }
    let_pass(manager(), 1ms);
  }
  EXPECT_LE(most, 64U);
}

TEST_F(bfd_client_linux, an_engine_that_is_stuck_is_found_out_without_a_request_and_comes_back) {
  start();
  bring_up(1);
  engine().react([](fake_bfdd&, const engine_request&) {});
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
  EXPECT_FALSE(bfdc_engine().running);
  engine().react(nullptr);
  wait_engine(true);
  EXPECT_EQ(wait_reported(1), reported_list{"up 1"});
}

TEST_F(bfd_client_linux, an_engine_without_sessions_is_left_in_peace) {
  start();
  const std::size_t before = engine().requests().size();
  let_pass(manager(), 2500ms);
  EXPECT_EQ(engine().requests().size(), before);
}

TEST_F(bfd_client_linux, the_operator_is_told_of_the_engine_and_its_sessions) {
  EXPECT_EQ(bfdc_engine().reason.view(), "bfdd does not answer");
  start();
  EXPECT_EQ(bfdc_engine().name.view(), "FRR's bfdd, control socket");
  EXPECT_EQ(bfdc_engine().reason.view(), "bfdd runs here");
  bring_up(1);
  engine().notify({{"op", "status"},
                   {"label", label(1)},
                   {"state", "down"},
                   {"diagnostics", 1},
                   {"remote-diagnostics", 3}});
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  bfdc_session_status told;
  ASSERT_TRUE(bfdc_session(101, {bfd_family_ipv4, {10, 0, 0, 1}}, &told));
  EXPECT_EQ(told.state, bfd_state_down);
  EXPECT_EQ(told.diagnostic, 1);
  EXPECT_EQ(told.remote_diagnostic, 3);
  EXPECT_EQ(told.ups, 1U);
  EXPECT_EQ(told.downs, 1U);
  EXPECT_FALSE(bfdc_session(102, {bfd_family_ipv4, {10, 0, 0, 1}}, &told));
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(wait_reported(1), reported_list{"gone 1"});
  EXPECT_FALSE(bfdc_session(101, {bfd_family_ipv4, {10, 0, 0, 1}}, &told));
}

TEST_F(bfd_client_linux, unbinding_gives_the_sessions_up) {
  start();
  bring_up(1);
  bfdc_unbind();
  EXPECT_TRUE(run_until([&] { return engine().sessions().empty(); }));
  EXPECT_EQ(create(2), ENOTCONN);
  EXPECT_EQ(reported(), reported_list{});
}

}  // namespace
}  // namespace ot::testing
