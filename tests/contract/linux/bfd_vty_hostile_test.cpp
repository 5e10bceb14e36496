// The engine on bfdd's vty socket and a bfdd that misbehaves: the engine leaves it, stays what it
// is, and works with the next one.
#include <fcntl.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "tests/contract/linux/bfd_vty_fixture.h"

namespace ot::testing {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using contract::let_pass;

const std::string end_of_answer(4, '\0');

struct nonsense {
  const char* name;
  const char* command;  // whose answer is to be it
  std::string bytes;
};

std::string list(const std::string& object) {
  return "[" + object + "]" + end_of_answer;
}

constexpr const char* sessions = "show bfd peers json";
constexpr const char* counters = "show bfd peers counters json";

const nonsense nonsenses[] = {
    {"no_list", sessions, "hello" + end_of_answer},
    {"empty_list", sessions, end_of_answer},
    {"half_a_list", sessions, "[{\"peer\":" + end_of_answer},
    {"object_for_a_list", sessions, "{}" + end_of_answer},
    {"number_for_a_session", sessions, list("7")},
    {"session_without_an_address", sessions, list(R"({"multihop":false,"status":"up"})")},
    {"address_is_no_text", sessions, list(R"({"multihop":false,"peer":1,"status":"up"})")},
    {"multihop_is_no_truth", sessions, list(R"({"multihop":"no","peer":"10.0.0.1"})")},
    {"interface_is_no_text", sessions,
     list(R"({"multihop":false,"peer":"10.0.0.1","interface":[],"status":"up"})")},
    {"no_state", sessions, list(R"({"multihop":false,"peer":"10.0.0.1"})")},
    {"unknown_state", sessions, list(R"({"multihop":false,"peer":"10.0.0.1","status":"odd"})")},
    {"interval_is_no_number", sessions,
     list(R"({"multihop":false,"peer":"10.0.0.1","status":"up","receive-interval":"x"})")},
    {"interval_below_0", sessions,
     list(R"({"multihop":false,"peer":"10.0.0.1","status":"up","receive-interval":-1})")},
    {"no_utf8", sessions, list("{\"peer\":\"\xff\xfe\"}")},
    {"deeply_nested", sessions, std::string(100'000, '[') + end_of_answer},
    {"counters_are_none", counters,
     list(R"({"multihop":false,"peer":"10.0.0.1","session-up":[]})")},
    {"refused_list", sessions, "% Unknown command\n\0\0\0\2"s},
    {"refused_configuration", "show running-config", "% Unknown command\n\0\0\0\2"s},
    {"no_end", sessions, "[]\0\0\1\0"s},
    {"more_than_an_answer", sessions, list("") + "x"},
    {"endless", sessions, std::string(5'000'000, ' ')},
};

std::ostream& operator<<(std::ostream& out, const nonsense& row) {
  return out << row.name;
}

class bfd_vty_hostile : public bfd_vty_fixture {
 protected:
  // The engine has left and reported that, found its session again, and works as ever.
  void expect_recovery() {
    texts all = wait_reported(4);
    EXPECT_EQ(all.at(0), "down 1");
    EXPECT_TRUE(all.at(1).starts_with("away: ")) << all.at(1);
    EXPECT_EQ(texts(all.begin() + 2, all.end()), (texts{"runs", "up 1"}));
    EXPECT_EQ(bfdd().connections(), 2U);
    bring_up(2);
  }
  // After what got no answers: the first command of the next connection gets one.
  void let_in_again() {
    ASSERT_TRUE(run_until([&] { return bfdd().count("enable") == 2; }));
    bfdd().react(nullptr);
    bfdd().answer(bfdd().obey("enable").code, "");
  }
  // One answer to `command` becomes these bytes, said as the socket takes them.
  void answer_once(const std::string& command, const std::string& bytes) {
    bfdd().react([=](fake_vty& bfdd, const std::string& asked) {
      if (asked != command) {
        return false;
      }
      bfdd.react(nullptr);
      bfdd.say(bytes);
      return true;
    });
  }
};

class bfd_vty_nonsense : public bfd_vty_hostile, public ::testing::WithParamInterface<nonsense> {};

TEST_P(bfd_vty_nonsense, ends_the_connection_and_nothing_else) {
  start();
  bring_up(1);
  if (GetParam().command == "show running-config"s) {
    engine().add(session(3));  // so that it is asked for
  }
  if (GetParam().bytes.size() < 200'000) {
    answer_once(GetParam().command, GetParam().bytes);
  } else {
    bfdd().react([](fake_vty&, const std::string&) { return true; });
    while (bfdd().connections() == 1) {
      bfdd().say(GetParam().bytes.substr(0, 100'000));
      let_pass(manager(), 1ms);
    }
    let_in_again();
  }
  expect_recovery();
}

INSTANTIATE_TEST_SUITE_P(every, bfd_vty_nonsense, ::testing::ValuesIn(nonsenses),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(bfd_vty_hostile, bytes_that_nobody_asked_for_end_the_connection) {
  start();
  bring_up(1);
  settle();
  bfdd().say("hello");
  expect_recovery();
}

TEST_F(bfd_vty_hostile, an_answer_that_never_ends_is_given_up) {
  start();
  bring_up(1);
  bfdd().react([](fake_vty&, const std::string&) { return true; });
  while (bfdd().connections() == 1) {
    bfdd().say(" ");
    let_pass(manager(), 50ms);
  }
  let_in_again();
  expect_recovery();
}

TEST_F(bfd_vty_hostile, an_answer_that_waits_for_a_busy_service_counts) {
  start();
  bring_up(1);
  std::string held;
  bfdd().react([&](fake_vty&, const std::string& command) {
    held = command;
    return true;
  });
  ASSERT_TRUE(run_until([&] { return !held.empty(); }));
  bfdd().react(nullptr);
  // With something else before them, the loop comes to the limit before it comes to the answer.
  evm_post(
      manager(), [](void*) {}, nullptr);
  const vty_answer answer = bfdd().obey(held);
  bfdd().answer(answer.code, answer.text);
  std::this_thread::sleep_for(4s);  // the loop is elsewhere for longer than an answer is waited for
  settle();
  EXPECT_EQ(reported(), texts{});
  EXPECT_EQ(bfdd().connections(), 1U);
}

TEST_F(bfd_vty_hostile, a_bfdd_that_lets_nobody_in_does_not_run) {
  bfdd().react([](fake_vty& bfdd, const std::string& command) {
    if (command != "enable") {
      return false;
    }
    bfdd.answer(2, "% Unknown command: enable\n");
    return true;
  });
  bfdd().listen();
  start_engine();
  ASSERT_TRUE(run_until([&] { return bfdd().connections() == 2; }));
  EXPECT_EQ(engine().status().reason, "bfdd answers what it should not");
  bfdd().react(nullptr);
  EXPECT_EQ(wait_reported(1), texts{"runs"});
}

TEST_F(bfd_vty_hostile, a_log_that_is_none_is_left_and_the_lists_remain) {
  start();
  bring_up(1);
  for (const std::string& bytes :
       {std::string("x"), std::string(44, '\0'), std::string(60, '\xff')}) {
    ASSERT_TRUE(run_until([&] { return bfdd().followed(); }));
    bfdd().log_bytes(bytes);
    bfdd().set_state_silently(key(1), "down");
    EXPECT_EQ(wait_reported(1), texts{"down 1"});
    bfdd().set_state_silently(key(1), "up");
    EXPECT_EQ(wait_reported(1), texts{"up 1"});
  }
  EXPECT_EQ(bfdd().connections(), 1U);
}

TEST_F(bfd_vty_hostile, messages_about_other_things_are_none_of_its_business) {
  start();
  bring_up(1);
  const std::string mine = "peer:10.0.0.1 local:10.0.0.254 vrf:default ifname:v1]";
  const texts others{
      "hello",
      "",
      "[]",
      "[AAAAA-BBBBB] state-change: [",
      "state-change: [mhop:yes " + mine + " up -> down reason:path-down",
      "state-change: [mhop:no peer:10.0.0.9 ifname:v1] up -> down",
      "state-change: [mhop:no peer:10.0.0.1 ifname:v9] up -> down",
      "state-change: [mhop:no peer:10.0.0.1] up -> down",
      "state-change: [mhop:no peer:fe80::1 ifname:v1] up -> down",
      "state-change: [mhop:no peer:10.0.0.1 ifname:" + std::string(40, 'x') + "] up -> down",
      "state-change: [mhop:no " + mine + " up -> sideways",
      "state-change: [mhop:no " + mine + " up",
      "session-new: mhop:no " + mine,
  };
  for (const std::string& text : others) {
    bfdd().log(text);
  }
  let_pass(manager(), 200ms);
  EXPECT_EQ(reported(), texts{});
  bfdd().log("[SEY1D-NT8EQ] state-change: [mhop:no " + mine + " up -> down reason:neighbor-down");
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
  EXPECT_EQ(status(1).diagnostic, 3);
}

TEST_F(bfd_vty_hostile, a_flood_of_messages_starves_nobody) {
  start();
  bring_up(1);
  for (unsigned count = 0; count < 3000; ++count) {
    bfdd().log("something that bfdd says often");
    if (count % 50 == 0) {
      let_pass(manager(), 1ms);
    }
  }
  bfdd().set_state(key(1), "down", "path-down");
  EXPECT_EQ(wait_reported(1), texts{"down 1"});
}

TEST_F(bfd_vty_hostile, a_descriptor_that_is_no_log_ends_the_connection) {
  start();
  bring_up(1);
  bfdd().react([](fake_vty& bfdd, const std::string& command) {
    if (command != "enable") {
      return false;
    }
    bfdd.obey(command);
    bfdd.answer(0, "");
    bfdd.react([](fake_vty& again, const std::string& asked) {
      if (asked != "terminal monitor") {
        return false;
      }
      again.react(nullptr);
      again.send_descriptor(open("/dev/null", O_RDWR | O_CLOEXEC));
      again.answer(0, "");
      return true;
    });
    return true;
  });
  bfdd().hang_up();
  texts all = wait_reported(4);
  EXPECT_EQ(texts(all.begin() + 2, all.end()), (texts{"runs", "up 1"}));
  EXPECT_EQ(bfdd().connections(), 3U);
}

TEST_F(bfd_vty_hostile, descriptors_that_nobody_asked_for_are_closed) {
  start();
  bring_up(1);
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = descriptors();
  bfdd().react([](fake_vty& bfdd, const std::string& command) {
    const vty_answer said = bfdd.obey(command);
    bfdd.send_descriptor(open("/dev/null", O_RDWR | O_CLOEXEC));
    bfdd.answer(said.code, said.text);
    return true;
  });
  const std::size_t asked = bfdd().commands().size();
  ASSERT_TRUE(run_until([&] { return bfdd().commands().size() > asked + 6; }));
  EXPECT_LE(descriptors(), before + 1);
}

}  // namespace
}  // namespace ot::testing
