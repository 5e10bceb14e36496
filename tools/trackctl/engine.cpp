// "engine": the record of the services' connections is a chain, one element a service; the words
// for each service are those of the kind that needs it.
#include "tools/trackctl/engine.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

#include "oper/records/engine.h"
#include "platform/status.h"
#include "tools/trackctl/columns.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/times.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

needed_service words_of(const std::string& service) {
  const auto kinds = track_kinds();
  const auto found = std::find_if(kinds.begin(), kinds.end(), [&](const track_kind& kind) {
    return kind.service.word == service;
  });
  return found == kinds.end() ? needed_service{service, service.c_str(), "pending", "pending"}
                              : found->get().service;
}

std::string pending_text(const needed_service& of, std::uint32_t count) {
  if (count == 0) {
    return "none";
  }
  return std::to_string(count) + ' ' + (count == 1 ? of.one_pending : of.more_pending);
}

moment from_seconds(std::int64_t seconds) {
  return from_epoch(std::chrono::seconds(seconds));
}

// What the service tells in seconds is shown in seconds.
std::string time_text(std::int64_t seconds) {
  return text_time(from_seconds(seconds)).substr(0, 19);
}

nlohmann::ordered_json loop_json(const loop_state& state) {
  const bool any = state.longest_at != 0;
  const auto at = any ? nlohmann::ordered_json(json_time(from_seconds(state.longest_at)))
                      : nlohmann::ordered_json(nullptr);
  return {{"service", "loop"},
          {"connected", true},
          {"since", json_time(from_seconds(state.since))},
          {"pending", 0},
          {"longest_turn_ms", state.longest_us / 1000.0},
          {"longest_turn_at", at},
          {"log_dropped", state.log_dropped}};
}

void register_records() {
  if (const int code = ot_engine_record_register(); code != duplicate_key) {
    check_code("preparing the operational records", code);
  }
}

// Reads the record of that key below "engine/".
template <typename Record>
void read_record(const char* key, const brec_descriptor& descriptor, Record& ret) {
  register_records();
  const ledger_connection connection(records_root);
  ledger_value value;
  check_code("reading the state of the engines",
             ledger_item_get(connection.get(), (std::string("engine/") + key).c_str(), &value));
  check_code("decoding the state of the engines", brec_decode(descriptor, value.bytes(), &ret));
}

}  // namespace

std::string engine_table(const std::vector<engine_state>& states) {
  constexpr std::size_t name_width = 17;
  constexpr std::size_t state_width = 13;
  constexpr std::size_t since_width = 19;
  std::string table = table_cell("Service", name_width) + table_cell("State", state_width) +
                      table_cell("Since", since_width) + "Pending\n";
  for (const engine_state& state : states) {
    const needed_service row = words_of(state.service);
    table += table_cell(row.name, name_width) +
             table_cell(state.connected ? "connected" : "not connected", state_width) +
             table_cell(time_text(state.since), since_width) + pending_text(row, state.pending) +
             '\n';
  }
  return table;
}

std::string details_text(const std::vector<engine_state>& states) {
  std::string text;
  for (const engine_state& state : states) {
    const needed_service row = words_of(state.service);
    const std::string name = std::string(row.name) + ": ";
    if (!state.detail.empty()) {
      text += name + state.detail + '\n';
    }
    if (state.discarded != 0 && row.discards != nullptr) {
      text += name + std::to_string(state.discarded) +
              (state.discarded == 1 ? " packet was discarded: " : " packets were discarded: ") +
              row.discards + '\n';
    }
  }
  return text;
}

std::string loop_text(const loop_state& state) {
  char turn[32] = "";
  std::snprintf(turn, sizeof turn, "%.3f ms", state.longest_us / 1000.0);
  const std::string dropped = state.log_dropped == 0
                                  ? ""
                                  : "Lines of the log dropped, because nobody read it: " +
                                        std::to_string(state.log_dropped) + '\n';
  return "Longest turn of the main loop: " +
         (state.longest_at == 0 ? std::string("none yet")
                                : turn + (", " + time_text(state.longest_at))) +
         '\n' + dropped;
}

nlohmann::ordered_json engine_json(const std::vector<engine_state>& states,
                                   const loop_state& loop) {
  auto all = nlohmann::ordered_json::array();
  for (const engine_state& state : states) {
    all.push_back({{"service", state.service},
                   {"connected", state.connected},
                   {"since", json_time(from_seconds(state.since))},
                   {"pending", state.pending}});
    if (!state.detail.empty()) {
      all.back()["detail"] = state.detail;
    }
    if (words_of(state.service).discards != nullptr) {
      all.back()["discarded_packets"] = state.discarded;
    }
  }
  all.push_back(loop_json(loop));
  return all;
}

std::vector<engine_state> read_engine_states() {
  engine_info__ record{};
  read_record("all", engine_info___brec, record);
  const auto release = [](engine_info__* decoded) { brec_release(engine_info___brec, decoded); };
  const std::unique_ptr<engine_info__, decltype(release)> links(&record, release);
  std::vector<engine_state> states;
  for (const engine_info__* each = &record; each != nullptr; each = each->next) {
    states.push_back({std::string(each->Service.view()), each->Connected,
                      static_cast<std::int64_t>(each->Since), each->Pending,
                      std::string(each->Detail.view()), each->Discarded});
  }
  return states;
}

loop_state read_loop_state() {
  loop_info__ record{};
  read_record("loop", loop_info___brec, record);
  log_info__ log{};
  read_record("log", log_info___brec, log);
  return {static_cast<std::int64_t>(record.Since), static_cast<std::int64_t>(record.LongestAt),
          record.LongestTurn, log.Dropped};
}

int run_engine(const arguments& args) {
  command_line app{
      "Show whether the service is connected to what its tracks need, since when, and what waits "
      "for it: the BFD engine, the probe service, the FIB and the interface manager; and the "
      "longest time for which its own loop was kept busy, and how many lines of its log were "
      "dropped, if any.",
      "trackctl engine"};
  app.footer(
      "Example: trackctl engine --json | jq -e '.[] | select(.service == \"bfd\").connected'");
  bool json = false;
  app.add_flag("--json", json, "for programs: an array of objects, times in RFC 3339");
  parse_arguments(app, args);

  const std::vector<engine_state> states = read_engine_states();
  const loop_state loop = read_loop_state();
  if (json) {
    std::cout << json_text(engine_json(states, loop));
  } else {
    std::cout << engine_table(states) << details_text(states) << loop_text(loop);
  }
  return exit_done;
}

}  // namespace ot::trackctl
