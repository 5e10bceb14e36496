// The words for each service, and the two renderings of the same states.
#include "tools/trackctl/engine_view.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

namespace ot::trackctl {
namespace {

struct service_words {
  std::string_view service;
  const char* name;
  const char* pending;  // behind the number
};
constexpr std::array words{
    service_words{"bfd", "BFD engine", "BFD tracks to be made"},
    service_words{"probe", "probe service", "operations without a result"},
    service_words{"fib", "FIB", "route items to be applied"},
    service_words{"interfaces", "interface manager", "interfaces that are not there"},
};

service_words words_of(const std::string& service) {
  const auto* const found = std::find_if(
      words.begin(), words.end(), [&](const service_words& row) { return row.service == service; });
  return found == words.end() ? service_words{service, service.c_str(), "pending"} : *found;
}

std::string time_text(std::int64_t seconds, const char* format, bool utc) {
  const std::time_t time = seconds;
  std::tm parts{};
  if ((utc ? gmtime_r(&time, &parts) : localtime_r(&time, &parts)) == nullptr) {
    return "?";
  }
  char text[64] = "";
  std::strftime(text, sizeof text, format, &parts);
  return text;
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text + "  ";
}

}  // namespace

std::string engine_table(const std::vector<engine_state>& states) {
  constexpr std::size_t name_width = 17;
  constexpr std::size_t state_width = 13;
  constexpr std::size_t since_width = 19;
  std::string table = padded("Service", name_width) + padded("State", state_width) +
                      padded("Since", since_width) + "Pending\n";
  for (const engine_state& state : states) {
    const service_words row = words_of(state.service);
    table += padded(row.name, name_width) +
             padded(state.connected ? "connected" : "not connected", state_width) +
             padded(time_text(state.since, "%Y-%m-%d %H:%M:%S", false), since_width) +
             (state.pending == 0 ? "none" : std::to_string(state.pending) + ' ' + row.pending) +
             '\n';
  }
  return table;
}

nlohmann::ordered_json engine_json(const std::vector<engine_state>& states) {
  auto all = nlohmann::ordered_json::array();
  for (const engine_state& state : states) {
    all.push_back({{"service", state.service},
                   {"connected", state.connected},
                   {"since", time_text(state.since, "%Y-%m-%dT%H:%M:%SZ", true)},
                   {"pending", state.pending}});
  }
  return all;
}

}  // namespace ot::trackctl
