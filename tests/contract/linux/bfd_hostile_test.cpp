// The BFD client and an engine that misbehaves: the client leaves it, stays what it is, and works
// with the next one.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "tests/contract/linux/bfd_client_fixture.h"

namespace ot::testing {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using contract::let_pass;
using nlohmann::json;

std::string message(std::uint8_t type, const std::string& payload, std::uint8_t version = 1) {
  std::string bytes(8, '\0');
  for (unsigned place = 0; place < 4; ++place) {
    bytes[place] = static_cast<char>(payload.size() >> (24 - 8 * place));
  }
  bytes[6] = static_cast<char>(type);
  bytes[7] = static_cast<char>(version);
  return bytes + payload;
}

struct nonsense {
  const char* name;
  std::string bytes;
};

const nonsense nonsenses[] = {
    {"endless_length", "\xff\xff\xff\xff\0\0\4\1"s},
    {"length_over_the_limit", "\0\1\0\1\0\0\4\1"s},
    {"wrong_version", message(4, "{}", 2)},
    {"request_in_place_of_answer", message(2, "{}")},
    {"unknown_type", message(9, "{}")},
    {"empty_payload", message(4, "")},
    {"no_json", message(4, "hello")},
    {"half_json", message(4, R"({"op":"status")")},
    {"array", message(4, "[]")},
    {"number", message(4, "12")},
    {"null", message(4, "null")},
    {"no_operation", message(4, "{}")},
    {"operation_is_no_text", message(4, R"({"op":[]})")},
    {"no_state", message(4, R"({"op":"status","label":"x"})")},
    {"state_is_no_text", message(4, R"({"op":"status","label":"x","state":1})")},
    {"label_is_no_text", message(4, R"({"op":"status","label":{},"state":"up"})")},
    {"address_is_no_text", message(4, R"({"op":"add","peer-address":7})")},
    {"interface_is_no_text", message(4, R"({"op":"add","local-interface":["e0"]})")},
    {"multihop_is_no_truth", message(4, R"({"op":"add","peer-address":"::1","multihop":"no"})")},
    {"no_utf8", message(4, "{\"op\":\"\xff\xfe\"}")},
    {"deeply_nested", message(4, std::string(60'000, '['))},
    {"answer_to_no_request", message(1, R"({"status":"ok"})")},
};

std::ostream& operator<<(std::ostream& out, const nonsense& row) {
  return out << row.name;
}

class bfd_hostile_engine : public bfd_client_fixture {
 protected:
  // The client has left and reported that, found its session again, and works as ever.
  void expect_recovery() {
    EXPECT_TRUE(run_until([&] { return !engine().connected() || engine().connections() == 2; }));
    engine().react(nullptr);
    EXPECT_EQ(wait_reported(2), (reported_list{"down 1", "up 1"}));
    EXPECT_EQ(engine().connections(), 2U);
    bring_up(2);
  }
  // The same while session 3 was asked for.
  void expect_recovery_with_another() {
    EXPECT_TRUE(run_until([&] { return !engine().connected(); }));
    engine().react(nullptr);
    reported_list all = wait_reported(3);
    EXPECT_EQ(std::count(all.begin(), all.end(), "created 3"), 1);
    all.erase(std::remove(all.begin(), all.end(), "created 3"), all.end());
    EXPECT_EQ(all, (reported_list{"down 1", "up 1"}));
    EXPECT_TRUE(run_until([&] { return !label(3).empty(); }));
  }
  // A label that this run never gave, but an earlier one could have.
  std::string label_of_earlier_run(unsigned number) {
    std::string text = label(1);
    text[text.find('-', 3) + 1] ^= 1;
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", number);
    return text.replace(text.size() - 8, 8, digits);
  }
};

class bfd_nonsense : public bfd_hostile_engine, public ::testing::WithParamInterface<nonsense> {};

TEST_P(bfd_nonsense, ends_the_connection_and_nothing_else) {
  start();
  bring_up(1);
  engine().say(GetParam().bytes);
  expect_recovery();
}

TEST_P(bfd_nonsense, in_place_of_the_first_answer_is_no_connection) {
  engine().react([](fake_bfdd& bfdd, const engine_request& request) {
    if (bfdd.connections() == 1) {
      bfdd.say(GetParam().bytes);
    } else {
      bfdd.obey(request);
    }
  });
  start();
  EXPECT_EQ(engine().connections(), 2U);
}

INSTANTIATE_TEST_SUITE_P(every, bfd_nonsense, ::testing::ValuesIn(nonsenses),
                         [](const auto& row) { return std::string(row.param.name); });

class bfd_answers : public bfd_hostile_engine, public ::testing::WithParamInterface<const char*> {};

// What a request may be answered with, but must not.
TEST_P(bfd_answers, of_the_wrong_shape_ends_the_connection) {
  start();
  bring_up(1);
  engine().react([](fake_bfdd& bfdd, const engine_request& request) {
    std::string bytes = message(1, GetParam());
    std::memcpy(&bytes[4], &request.id, sizeof request.id);
    bfdd.say(bytes);
  });
  ASSERT_EQ(create(3), 0);
  expect_recovery_with_another();
}

INSTANTIATE_TEST_SUITE_P(every, bfd_answers,
                         ::testing::Values("{}", "[]", "7", "null", R"({"status":1})",
                                           R"({"status":null})", R"({"status":"perhaps"})", "x"));

TEST_F(bfd_hostile_engine, an_end_amid_a_message_is_an_end) {
  start();
  bring_up(1);
  engine().say(message(4, R"({"op":"status"})").substr(0, 5));
  let_pass(manager(), std::chrono::milliseconds{20});
  engine().hang_up();
  expect_recovery();
}

TEST_F(bfd_hostile_engine, an_end_before_any_answer_is_no_connection) {
  engine().react([](fake_bfdd& bfdd, const engine_request& request) {
    if (bfdd.connections() < 3) {
      bfdd.hang_up();
    } else {
      bfdd.obey(request);
    }
  });
  start();
  EXPECT_EQ(engine().connections(), 3U);
}

TEST_F(bfd_hostile_engine, messages_may_come_byte_by_byte) {
  start();
  bring_up(1);
  const std::string bytes =
      message(4, json{{"op", "status"}, {"label", label(1)}, {"state", "down"}}.dump());
  for (const char byte : bytes) {
    engine().say({&byte, 1});
    let_pass(manager(), std::chrono::milliseconds{1});
  }
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  EXPECT_EQ(engine().connections(), 1U);
}

TEST_F(bfd_hostile_engine, a_message_that_never_ends_is_given_up) {
  start();
  bring_up(1);
  engine().say(message(4, std::string(1000, ' ')).substr(0, 500));
  while (engine().connections() == 1) {
    engine().say(" ");
    let_pass(manager(), std::chrono::milliseconds{50});
  }
  expect_recovery();
}

TEST_F(bfd_hostile_engine, an_engine_that_does_not_answer_is_given_up) {
  start();
  bring_up(1);
  engine().react([](fake_bfdd&, const engine_request&) {});
  ASSERT_EQ(create(3), 0);
  ASSERT_TRUE(run_until([&] { return engine().requests(2).size() == 2; }));
  expect_recovery_with_another();
}

TEST_F(bfd_hostile_engine, an_answer_that_waits_for_a_busy_service_counts) {
  start();
  bring_up(1);
  std::vector<engine_request> held;
  engine().react([&](fake_bfdd&, const engine_request& request) { held.push_back(request); });
  ASSERT_EQ(create(3), 0);
  ASSERT_TRUE(run_until([&] { return held.size() == 1; }));
  engine().react(nullptr);
  // With something else before them, the loop comes to the limit before it comes to the answer.
  evm_post(
      manager(), [](void*) {}, nullptr);
  engine().obey(held[0]);
  std::this_thread::sleep_for(3s);  // the loop is elsewhere for longer than an answer is waited for
  EXPECT_EQ(wait_reported(1), reported_list{"created 3"});
  engine().set_state(label(3), "up");
  EXPECT_EQ(wait_reported(1), reported_list{"up 3"});
  EXPECT_EQ(engine().connections(), 1U);
}

TEST_F(bfd_hostile_engine, answers_may_come_in_any_order) {
  start();
  std::vector<engine_request> held;
  engine().react([&](fake_bfdd&, const engine_request& request) { held.push_back(request); });
  for (unsigned number = 1; number <= 3; ++number) {
    ASSERT_EQ(create(number), 0);
  }
  ASSERT_TRUE(run_until([&] { return held.size() == 3; }));
  engine().obey(held[2]);
  engine().obey(held[0]);
  engine().obey(held[1]);
  ASSERT_EQ(engine().sessions().size(), 3U);
  ASSERT_EQ(wait_reported(3).size(), 3U);
  engine().react(nullptr);
  for (unsigned number = 1; number <= 3; ++number) {
    engine().set_state(label(number), "up");
    EXPECT_EQ(wait_reported(1), reported_list{"up " + std::to_string(number)});
  }
}

TEST_F(bfd_hostile_engine, sessions_of_others_are_none_of_its_business) {
  start();
  bring_up(1);
  for (const char* operation : {"add", "update", "delete", "status", "surprise"}) {
    engine().notify({{"op", operation}, {"label", "uplink"}, {"state", "down"}});
    engine().notify({{"op", operation}, {"peer-address", address(1)}, {"state", "down"}});
    engine().notify({{"op", operation}, {"label", std::string(200, 'x')}, {"state", "down"}});
  }
  engine().set_state(label(1), "down");
  EXPECT_EQ(wait_reported(1), reported_list{"down 1"});
  EXPECT_EQ(engine().connections(), 1U);
  EXPECT_EQ(engine().requests(3).size(), 0U);
}

TEST_F(bfd_hostile_engine, an_engine_that_does_not_read_makes_nothing_grow) {
  start();
  bring_up(1);
  engine().stop_reading();
  const auto round = [&] {
    for (unsigned number = 2; number < 200; ++number) {
      EXPECT_EQ(create(number), 0);
      EXPECT_EQ(remove(number), 0);
    }
    EXPECT_EQ(wait_reported(396).size(), 396U);
  };
  round();
  const std::size_t before = mallinfo2().uordblks;
  for (unsigned count = 0; count < 20; ++count) {
    round();
  }
  EXPECT_LT(mallinfo2().uordblks, before + 256'000);
}

TEST_F(bfd_hostile_engine, a_flood_of_orphans_makes_nothing_grow) {
  start();
  bring_up(1);
  engine().react([](fake_bfdd&, const engine_request&) {});  // none is ever removed
  const std::size_t before = mallinfo2().uordblks;
  for (unsigned number = 0; number < 20'000 && engine().connected(); ++number) {
    engine().notify({{"op", "add"}, {"label", label_of_earlier_run(number)}});
    if (number % 100 == 0) {
      let_pass(manager(), std::chrono::milliseconds{1});
    }
  }
  EXPECT_LT(mallinfo2().uordblks, before + 1'000'000);
  engine().hang_up();
  expect_recovery();
}

}  // namespace
}  // namespace ot::testing
