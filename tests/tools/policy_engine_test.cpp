// Policies at work, on a host with virtual time: what is run, written and remembered, in which
// order.
#include "tools/trackpolicy/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "tests/support/seeds.h"
#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kinds/command_memory.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct fake_command {
  std::string policy_name;
  words argv;
  words environment;
  std::function<void(const command_end&)> ended;
};

// Routes and interfaces: what was asked for.
class fake_network : public network {
 public:
  void keep_route(const std::string& owner, const route& what, wish wanted) override {
    routes[owner] = text_of(what) + words[static_cast<std::size_t>(wanted)];
  }
  void forget_route(const std::string& owner) override { routes.erase(owner); }
  outcome route_outcome(const std::string&) const override { return now; }
  void keep_link(const std::string& owner, const std::string& track, const std::string& interface,
                 wish up) override {
    links[owner] = track + ' ' + interface + words[static_cast<std::size_t>(up)];
  }
  void forget_link(const std::string& owner) override { links.erase(owner); }
  outcome link_outcome(const std::string&) const override { return now; }

  static constexpr std::array words{" keep", " yes", " no"};
  std::map<std::string, std::string> routes;
  std::map<std::string, std::string> links;
  outcome now;
};

// The system, scripted: commands end when the test says so.
class fake_host : public host {
 public:
  std::uint64_t now_us() const override { return now; }
  void log(const policy& of, const std::string& text) override {
    logged.push_back(of.name + ": " + text);
  }
  bool has_room(reaction& who, const policy&) override {
    if (running.size() >= room) {
      starved.push_back(&who);
      return false;
    }
    return true;
  }
  pid_t start(const policy& of, const words& argv, const words& environment,
              std::function<void(const command_end&)> ended, std::string* ret_error) override {
    if (!start_error.empty()) {
      *ret_error = start_error;
      return 0;
    }
    const pid_t command = next_pid++;
    memory[of.name] += "command " + std::to_string(command);
    memory_at_start = memory;
    running[command] = {of.name, argv, environment, std::move(ended)};
    begun.push_back(argv.back());
    return command;
  }
  bool end(pid_t command) override {
    asked_to_end.push_back(command);
    return !end_unheard_of;
  }
  void abandon(pid_t command) override { running.at(command).ended = nullptr; }
  std::string recall(const std::string& name) override { return memory[name]; }
  void remember(const std::string& name, const std::string& text) override { memory[name] = text; }
  void forget(const std::string& name) override { memory.erase(name); }
  std::vector<std::string> remembered() override {
    std::vector<std::string> names;
    for (const auto& [name, text] : memory) {
      names.push_back(name);
    }
    return names;
  }
  std::string recall_flaps() override { return flaps; }
  void remember_flaps(const std::string& text) override {
    flaps = text;
    ++flap_writes;
  }
  void end_leftover(std::string_view who) override { leftovers.emplace_back(who); }
  bool file_has(const std::string& path, const std::string& content) override {
    return files.contains(path) && files[path] == content;
  }
  std::string write_file(const std::string& path, const std::string& content) override {
    if (write_error.empty()) {
      files[path] = content;
      ++writes;
    }
    return write_error;
  }

  network& net() override { return net_; }

  // The command that began last of those that run ends.
  void finish(bool success = true) { finish(running.rbegin()->first, success); }
  void finish(pid_t command, bool success) {
    const fake_command one = running.at(command);
    running.erase(command);
    if (one.ended) {
      one.ended({.success = success, .text = success ? "exit status 0" : "exit status 3"});
    }
    if (!starved.empty()) {
      reaction* const next = starved.front();
      starved.erase(starved.begin());
      next->due();
    }
  }

  fake_network net_;
  std::uint64_t now = 1'000'000;
  std::size_t room = 32;
  std::string start_error;
  bool end_unheard_of = false;  // of a command that has ended
  std::string write_error;
  pid_t next_pid = 100;
  std::map<pid_t, fake_command> running;
  std::vector<std::string> begun;  // the last argument of each
  std::vector<pid_t> asked_to_end;
  std::vector<std::string> leftovers;
  std::vector<reaction*> starved;
  std::vector<std::string> logged;
  std::map<std::string, std::string> memory;
  std::map<std::string, std::string> memory_at_start;  // of the command that began last
  std::map<std::string, std::string> files;
  int writes = 0;
  std::string flaps;
  int flap_writes = 0;
};

policy command_policy(const std::string& name = "p", const std::string& track = "t") {
  policy made;
  made.name = name;
  made.track = track;
  made.run_as_root = true;
  made.run_on = {words{"/c", "unknown"}, words{"/c", "up"}, words{"/c", "down"}};
  return made;
}

policy file_policy() {
  policy made;
  made.name = "f";
  made.track = "t";
  made.kind = kind_id::file;
  made.path = "/run/f";
  return made;
}

class policy_engine : public testing::Test {
 protected:
  void start(const std::vector<policy>& policies) {
    engine_ = std::make_unique<engine>(host_);
    engine_->recall_flaps();
    engine_->apply(policies);
  }
  void states(track_state state, const char* reason = "start") {
    engine_->set_states({{"t", {state, 7}}}, reason);
  }
  void become(track_state state) { engine_->change("t", {state, 8}); }
  void advance(std::uint64_t milliseconds) {
    const std::uint64_t end = host_.now + milliseconds * 1000;
    while (engine_->next_due_us() <= end) {
      host_.now = std::max(host_.now, engine_->next_due_us());
      engine_->run_due();
    }
    host_.now = end;
  }
  [[nodiscard]] report status() const { return engine_->status().at(0).at_work; }

  static constexpr track_state up = track_state::up;
  static constexpr track_state down = track_state::down;
  fake_host host_;
  std::unique_ptr<engine> engine_;
};

TEST_F(policy_engine, a_command_is_run_for_the_first_state_and_for_each_change) {
  start({command_policy()});
  EXPECT_THAT(host_.begun, IsEmpty());
  states(up);
  EXPECT_THAT(host_.running.begin()->second.environment,
              ElementsAre("OT_TRACK=t", "OT_STATE=up", "OT_PREVIOUS=unknown", "OT_SINCE=7",
                          "OT_REASON=start", "OT_POLICY=p"));
  host_.finish();
  become(down);
  EXPECT_THAT(host_.running.begin()->second.environment,
              ElementsAre("OT_TRACK=t", "OT_STATE=down", "OT_PREVIOUS=up", "OT_SINCE=8",
                          "OT_REASON=change", "OT_POLICY=p"));
  host_.finish();
  EXPECT_THAT(host_.begun, ElementsAre("up", "down"));
}

TEST_F(policy_engine, a_state_that_is_known_already_is_not_told_again) {
  start({command_policy()});
  states(up);
  host_.finish();
  become(up);
  engine_->service_gone();
  states(up, "reconnected");
  engine_->apply({command_policy()});
  EXPECT_THAT(host_.begun, ElementsAre("up"));
  EXPECT_EQ(status().doing, "has seen up");
}

TEST_F(policy_engine, while_a_command_runs_only_the_latest_state_waits) {
  start({command_policy()});
  states(up);
  become(down);
  become(up);
  become(down);
  EXPECT_EQ(status().doing, "runs for up, 1 waiting");
  host_.finish();
  host_.finish();
  EXPECT_THAT(host_.begun, ElementsAre("up", "down"));
  become(up);
  become(down);
  become(up);
  host_.finish();
  EXPECT_THAT(host_.begun, ElementsAre("up", "down", "up"));
  EXPECT_THAT(host_.running, IsEmpty());
}

TEST_F(policy_engine, each_state_waits_where_the_policy_says_so_up_to_a_bound) {
  policy every = command_policy();
  every.every = true;
  start({every});
  states(up);
  for (int i = 0; i < 35; ++i) {
    become(down);
    become(up);
  }
  EXPECT_EQ(status().dropped, 6U);
  EXPECT_THAT(host_.logged, ElementsAre("p: more than 64 states wait for the command; the oldest "
                                        "are dropped"));
  while (!host_.running.empty()) {
    host_.finish();
  }
  EXPECT_EQ(host_.begun.size(), 65U);
  EXPECT_EQ(host_.begun.back(), "up");
}

TEST_F(policy_engine, a_slow_command_does_not_delay_those_of_other_policies) {
  start({command_policy("a"), command_policy("b")});
  states(up);
  EXPECT_EQ(host_.running.size(), 2U);
}

TEST_F(policy_engine, commands_beyond_the_limit_wait_for_room) {
  host_.room = 1;
  start({command_policy("a"), command_policy("b")});
  states(up);
  EXPECT_EQ(host_.running.begin()->second.policy_name, "a");
  host_.finish();
  EXPECT_EQ(host_.running.begin()->second.policy_name, "b");
}

TEST_F(policy_engine, a_state_that_passes_while_there_is_no_room_is_not_told) {
  host_.room = 0;
  start({command_policy()});
  states(up);
  become(track_state::unknown);
  host_.room = 1;
  host_.starved.front()->due();
  EXPECT_THAT(host_.begun, IsEmpty());
}

TEST_F(policy_engine, a_command_that_fails_is_run_again_as_often_as_is_said) {
  policy again = command_policy();
  again.retry = 2;
  start({again});
  states(up);
  for (int attempt = 0; attempt < 3; ++attempt) {
    ASSERT_EQ(host_.running.size(), 1U);
    host_.finish(false);
    advance(4999);
    EXPECT_THAT(host_.running, IsEmpty());
    advance(1);
  }
  EXPECT_THAT(host_.begun, ElementsAre("up", "up", "up"));
  EXPECT_EQ(status().failures, 1U);
  EXPECT_EQ(status().problem, "the command for up: exit status 3");
  become(down);
  host_.finish();
  EXPECT_EQ(status().problem, "");
}

TEST_F(policy_engine, a_later_state_ends_the_further_attempts) {
  policy again = command_policy();
  again.retry = 2;
  start({again});
  states(up);
  host_.finish();
  become(down);
  host_.finish(false);
  become(up);  // told, although up was told last before: "down" may have done half its work
  EXPECT_THAT(host_.begun, ElementsAre("up", "down", "up"));
  host_.finish();
  advance(60000);
  EXPECT_THAT(host_.begun, ElementsAre("up", "down", "up"));
}

TEST_F(policy_engine, a_command_that_takes_too_long_is_ended_and_counts_as_failed) {
  start({command_policy()});
  states(up);
  advance(29999);
  EXPECT_THAT(host_.asked_to_end, IsEmpty());
  advance(1);
  EXPECT_THAT(host_.asked_to_end, ElementsAre(100));
  host_.finish(true);  // it may well end in peace
  EXPECT_EQ(status().problem, "the command for up: took too long and was ended");
}

TEST_F(policy_engine, a_command_that_ended_in_time_though_nobody_looked_has_not_failed) {
  start({command_policy()});
  states(up);
  host_.end_unheard_of = true;
  advance(30000);
  host_.finish(true);
  EXPECT_EQ(status().problem, "");
  EXPECT_EQ(status().failures, 0U);
}

TEST_F(policy_engine, a_command_that_cannot_be_run_has_failed) {
  host_.start_error = "No such file or directory";
  start({command_policy()});
  states(up);
  EXPECT_THAT(host_.logged,
              ElementsAre("p: the command for up: cannot be run: No such file or directory"));
}

TEST_F(policy_engine, a_state_without_a_command_is_taken_note_of) {
  policy only_down = command_policy();
  only_down.run_on[index_of(up)] = {};
  start({only_down});
  states(down);
  host_.finish();
  become(up);
  become(down);
  EXPECT_THAT(host_.begun, ElementsAre("down", "down"));
}

TEST_F(policy_engine, a_restart_neither_tells_a_state_twice_nor_loses_one) {
  start({command_policy()});
  states(up);
  host_.finish();
  start({command_policy()});
  states(up);
  EXPECT_THAT(host_.begun, ElementsAre("up"));
  start({command_policy()});
  states(down);
  EXPECT_THAT(host_.begun, ElementsAre("up", "down"));
  host_.running.clear();  // killed with its trackpolicy, which does not know the end
  start({command_policy()});
  EXPECT_THAT(host_.leftovers, ElementsAre("command 101"));
  states(down);
  EXPECT_THAT(host_.begun, ElementsAre("up", "down", "down"));
}

TEST_F(policy_engine,
       a_state_is_told_again_when_trackpolicy_died_as_soon_as_the_command_for_another_ran) {
  start({command_policy()});
  states(down);
  host_.finish();
  become(up);
  host_.memory = host_.memory_at_start;
  host_.running.clear();
  start({command_policy()});
  EXPECT_THAT(host_.leftovers, ElementsAre("command 101"));
  states(down);
  EXPECT_THAT(host_.begun, ElementsAre("down", "up", "down"));
}

TEST_F(policy_engine, what_is_remembered_of_another_track_or_is_no_memory_counts_for_nothing) {
  for (const char* const memory : {R"({"track":"other","told":"up"})", "{", "[1]", "",
                                   R"({"track":"t","told":3,"begun":"x"})"}) {
    host_.memory["p"] = memory;
    host_.begun.clear();
    start({command_policy()});
    states(up);
    EXPECT_THAT(host_.begun, ElementsAre("up")) << memory;
    host_.running.clear();
  }
}

TEST_F(policy_engine, a_reload_ends_what_is_gone_and_leaves_what_is_the_same) {
  start({command_policy("a"), command_policy("b")});
  states(up);
  policy longer = command_policy("a");
  longer.timeout_ms = 60000;
  engine_->apply({longer});
  EXPECT_TRUE(host_.running.at(100).ended);
  EXPECT_FALSE(host_.running.at(101).ended);
  EXPECT_FALSE(host_.memory.contains("b"));
  host_.finish(100, true);
  EXPECT_EQ(engine_->size(), 1U);
  EXPECT_THAT(host_.begun, ElementsAre("up", "up"));
}

TEST_F(policy_engine, a_file_says_the_state_and_is_written_only_when_it_does_not) {
  start({file_policy()});
  states(up);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  states(up, "reconnected");
  EXPECT_EQ(host_.writes, 1);
  become(down);
  EXPECT_EQ(host_.files["/run/f"], "0\n");
  EXPECT_EQ(status().doing, "/run/f says 0");
}

TEST_F(policy_engine, a_file_says_down_when_the_service_is_gone_for_longer_than_its_grace) {
  host_.files["/run/f"] = "1\n";
  start({file_policy()});
  advance(9999);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  states(up);
  advance(60000);
  engine_->service_gone();
  advance(9999);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  advance(1);
  EXPECT_EQ(host_.files["/run/f"], "0\n");
  states(up, "reconnected");
  EXPECT_EQ(host_.files["/run/f"], "1\n");
}

TEST_F(policy_engine, a_reload_changes_the_grace_that_is_running) {
  policy of = file_policy();
  start({of});
  states(up);
  engine_->service_gone();
  advance(1000);
  of.grace_ms = 3000;
  engine_->apply({of});
  advance(1999);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  advance(1);
  EXPECT_EQ(host_.files["/run/f"], "0\n");
}

TEST_F(policy_engine, a_file_that_cannot_be_written_is_tried_again_and_told_once) {
  host_.write_error = "/run/f: No space left on device";
  start({file_policy()});
  states(up);
  advance(20000);
  EXPECT_THAT(host_.logged, ElementsAre("f: /run/f: No space left on device"));
  host_.write_error.clear();
  advance(5000);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  EXPECT_EQ(status().problem, "");
}

policy route_policy() {
  policy made;
  made.name = "r";
  made.track = "t";
  made.kind = kind_id::route;
  made.kept_route.dev = "wan0";
  return made;
}

TEST_F(policy_engine, a_route_is_wanted_exactly_while_the_track_is_up) {
  start({route_policy()});
  EXPECT_EQ(host_.net_.routes["r"], "default dev wan0 keep");
  EXPECT_EQ(status().doing, "waits for a state: default dev wan0");
  states(up);
  EXPECT_EQ(host_.net_.routes["r"], "default dev wan0 yes");
  host_.net_.now.done = true;
  EXPECT_EQ(status().doing, "installed: default dev wan0");
  become(down);
  EXPECT_EQ(host_.net_.routes["r"], "default dev wan0 no");
  EXPECT_EQ(status().doing, "withheld by t: default dev wan0");
  become(track_state::unknown);
  EXPECT_EQ(host_.net_.routes["r"], "default dev wan0 no");
}

TEST_F(policy_engine, a_route_stays_as_it_is_while_the_service_is_away) {
  start({route_policy()});
  states(up);
  engine_->service_gone();
  advance(60'000);
  EXPECT_EQ(host_.net_.routes["r"], "default dev wan0 yes");
}

TEST_F(policy_engine, a_refused_route_says_why) {
  start({route_policy()});
  states(up);
  host_.net_.now.problem = "File exists";
  EXPECT_EQ(status().doing, "refused: default dev wan0");
  EXPECT_EQ(status().problem, "File exists");
}

TEST_F(policy_engine, a_reload_changes_a_route_or_withdraws_it) {
  start({route_policy()});
  states(up);
  policy other = route_policy();
  other.kept_route.metric = 5;
  engine_->apply({other});
  EXPECT_EQ(host_.net_.routes["r"], "default dev wan0 metric 5 yes");
  engine_->apply({});
  EXPECT_THAT(host_.net_.routes, IsEmpty());
}

TEST_F(policy_engine, an_interface_follows_the_track_and_an_unknown_one_changes_nothing) {
  policy link;
  link.name = "l";
  link.track = "t";
  link.kind = kind_id::link;
  link.interface = "acc0";
  start({link});
  EXPECT_EQ(host_.net_.links["l"], "t acc0 keep");
  states(down);
  EXPECT_EQ(host_.net_.links["l"], "t acc0 no");
  become(track_state::unknown);
  EXPECT_EQ(host_.net_.links["l"], "t acc0 keep");
  become(up);
  EXPECT_EQ(host_.net_.links["l"], "t acc0 yes");
  engine_->apply({});
  EXPECT_THAT(host_.net_.links, IsEmpty());
}

policy frr_policy() {
  policy made;
  made.name = "r";
  made.track = "t";
  made.kind = kind_id::frr;
  made.run_as_root = true;
  made.lines = {words{}, words{"configure terminal", "no shutdown"}, words{"shutdown"}};
  return made;
}

TEST_F(policy_engine, lines_for_vtysh_are_one_command_with_retries_as_others) {
  policy of = frr_policy();
  of.retry = 1;
  start({of});
  states(up);
  EXPECT_THAT(host_.running.begin()->second.argv,
              ElementsAre("/usr/bin/vtysh", "-c", "configure terminal", "-c", "no shutdown"));
  become(down);
  host_.finish(false);  // the later state is told in place of a further attempt
  EXPECT_THAT(host_.running.begin()->second.argv, ElementsAre("/usr/bin/vtysh", "-c", "shutdown"));
  host_.finish(false);
  advance(5000);
  EXPECT_THAT(host_.begun, ElementsAre("no shutdown", "shutdown", "shutdown"));
  host_.finish();
  become(track_state::unknown);  // for which there are no lines
  EXPECT_THAT(host_.running, IsEmpty());
  EXPECT_EQ(status().doing, "has seen unknown");
}

TEST_F(policy_engine, a_reload_changes_the_lines_for_vtysh) {
  start({frr_policy()});
  states(up);
  host_.finish();
  policy of = frr_policy();
  of.lines[index_of(down)] = {"other"};
  engine_->apply({of});
  become(down);
  EXPECT_THAT(host_.begun, ElementsAre("no shutdown", "other"));
}

TEST_F(policy_engine, a_state_is_held_until_it_has_lasted) {
  policy of = command_policy();
  of.hold_ms = 5000;
  start({of});
  states(up);
  host_.finish();
  become(down);
  advance(4000);
  EXPECT_EQ(engine_->status().at(0).filter.held, down);
  become(up);
  become(down);
  advance(4999);
  EXPECT_THAT(host_.begun, ElementsAre("up"));
  advance(1);
  EXPECT_THAT(host_.begun, ElementsAre("up", "down"));
}

TEST_F(policy_engine, a_file_stays_as_it_is_while_the_state_after_a_reconnection_is_held) {
  policy of = file_policy();
  of.hold_ms = 20'000;
  start({of});
  states(up);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  engine_->service_gone();
  advance(1000);
  states(down, "reconnected");
  advance(19'999);  // longer than its grace, but the service is back
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  advance(1);
  EXPECT_EQ(host_.files["/run/f"], "0\n");
}

TEST_F(policy_engine, flaps_are_damped_and_a_policy_of_another_track_begins_without_a_penalty) {
  policy of = file_policy();
  of.half_life_ms = 10'000;
  start({of});
  states(up);
  for (int i = 0; i < 3; ++i) {
    become(down);
    become(up);
  }
  EXPECT_EQ(host_.files["/run/f"], "0\n");
  EXPECT_EQ(engine_->status().at(0).filter.penalty, 3000);
  advance(20'001);
  EXPECT_EQ(host_.files["/run/f"], "1\n");
  become(down);
  of.track = "other";
  engine_->apply({of});
  EXPECT_EQ(engine_->status().at(0).filter.penalty, 0);
}

TEST_F(policy_engine, a_restart_does_not_forget_flaps) {
  policy of = file_policy();
  of.half_life_ms = 10'000;
  start({of});
  states(up);
  engine_->remember_flaps();
  EXPECT_EQ(host_.flap_writes, 0);
  for (int i = 0; i < 3; ++i) {
    become(down);
    become(up);
  }
  engine_->remember_flaps();
  engine_->remember_flaps();
  EXPECT_EQ(host_.flap_writes, 1);

  start({of});
  states(up);
  EXPECT_EQ(host_.files["/run/f"], "0\n");
  EXPECT_EQ(engine_->status().at(0).filter.penalty, 3000);
  advance(20'001);
  EXPECT_EQ(host_.files["/run/f"], "1\n");

  // Of the track, and not one that comes back by a reload.
  engine_->apply({});
  engine_->apply({of});
  EXPECT_EQ(engine_->status().at(0).filter.penalty, 0);
  of.track = "other";
  start({of});
  EXPECT_EQ(engine_->status().at(0).filter.penalty, 0);
}

TEST_F(policy_engine, what_is_remembered_of_no_policy_is_ended_and_forgotten) {
  host_.memory = {{"gone", R"({"track":"t","told":"up","begun":true})"
                           "\nseven"},
                  {"moved", R"({"track":"u","told":"up","begun":true})"
                            "\nnine"},
                  {"f", R"({"track":"t","told":"up","begun":true})"
                        "\neleven"},
                  {"early", R"({"track":"t","told":"up","begun":true})"},
                  {"ended", R"({"track":"t","told":"up","begun":false})"
                            "\nthirteen"},
                  {"odd", "odd"},
                  {"p", R"({"track":"t","told":"up"})"}};
  forget_others(host_, {command_policy("p"), command_policy("moved"), file_policy()});
  EXPECT_THAT(host_.leftovers, testing::UnorderedElementsAre("seven", "nine", "eleven"));
  EXPECT_THAT(host_.memory, ElementsAre(testing::Key("p")));
}

// Whatever happens in whatever order, in the end the command has been told the final state last and
// the file says it.
TEST_F(policy_engine, in_the_end_everybody_knows_the_final_state) {
  const unsigned seed = test::one_seed();
  SCOPED_TRACE(test::shown(seed));
  std::mt19937 random(seed);
  const std::vector<policy> policies{command_policy(), file_policy()};
  for (int round = 0; round < 300; ++round) {
    host_.running.clear();
    host_.starved.clear();
    host_.room = 1 + random() % 2;
    start(policies);
    track_state last = static_cast<track_state>(random() % 3);
    states(last);
    for (int step = 0; step < 20; ++step) {
      switch (random() % 6) {
        case 0:
          engine_->service_gone();
          break;
        case 1:
          states(last, "reconnected");
          break;
        case 2:
          host_.running.clear();
          host_.starved.clear();
          start(policies);
          break;
        case 3:
          if (!host_.running.empty()) host_.finish();
          break;
        default:
          last = static_cast<track_state>(random() % 3);
          become(last);
      }
    }
    states(last, "reconnected");
    while (!host_.running.empty()) {
      host_.finish();
    }
    ASSERT_EQ(host_.files["/run/f"], last == up ? "1\n" : "0\n");
    if (!host_.begun.empty()) {
      ASSERT_EQ(host_.begun.back(), word_of(last));
    }
  }
}

TEST(policy_description, says_what_would_be_done) {
  const kind& command = kind_of(kind_id::command);
  policy tell = command_policy();
  tell.run_on[1] = {"/bin/tell", "", "a b"};
  EXPECT_EQ(command.describe(tell, track_state::up),
            "runs as root, for at most 30000 ms: /bin/tell \"\" \"a b\"");
  EXPECT_EQ(kind_of(kind_id::frr).describe(frr_policy(), track_state::down),
            "runs as root, for at most 30000 ms: /usr/bin/vtysh -c shutdown");
  EXPECT_EQ(kind_of(kind_id::frr).describe(frr_policy(), track_state::unknown), "does nothing");
  EXPECT_THAT(kind_of(kind_id::file).describe(file_policy(), track_state::down),
              HasSubstr("writes \"0\" to /run/f"));
}

}  // namespace
}  // namespace ot::trackpolicy
