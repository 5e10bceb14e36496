// The status view. It reads the table as every other reader does, so what it shows is what the
// tracks see.
#include "tools/qmond/status.h"

#include <langinfo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <system_error>

#include "platform/common/root_path.h"
#include "platform/probe_service.h"
#include "tools/json.h"
#include "tools/qmond/outcome.h"
#include "tools/qmond/qmond.h"
#include "tools/qmond/table_writer.h"

namespace ot::qmond {
namespace {

constexpr std::size_t target_width_max = 44;

std::string round_trip_text(const statistics& result) {
  if (result[word_successes] == 0) {
    return "-";
  }
  const double milliseconds = result[word_response_time_us] / 1000.0;
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.*f ms", milliseconds < 10 ? 2 : 0, milliseconds);
  return text.data();
}

// "kind target", shortened where the table would become too wide.
std::string target_text(const operation_status& one) {
  std::string text = description_text(one.about);
  if (text.size() > target_width_max) {
    text = text.substr(0, target_width_max - 3) + "...";
  }
  return text;
}

using row = std::array<std::string, 6>;

void append_row(std::string& text, const row& cells, const std::array<std::size_t, 6>& widths) {
  std::string line;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    line += cells[i];
    if (i + 1 < cells.size()) {  // nothing is lined up behind the bar
      line.append(widths[i] + 2 - cells[i].size(), ' ');
    }
  }
  text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
}

nlohmann::json json_of(const operation_status& one) {
  const std::string about = description_text(one.about);
  const std::size_t blank = about.find(' ');
  nlohmann::json last = nlohmann::json::array();
  for (const std::uint32_t level : history_levels(one.result)) {
    last.push_back(level != history_failure);
  }
  const std::uint32_t code = one.result[word_return_code];
  nlohmann::json round_trip;
  if (one.result[word_successes] > 0) {
    round_trip = one.result[word_response_time_us] / 1000.0;
  }
  return {{"operation", one.result[word_op_id]},
          {"kind", about.substr(0, blank)},
          {"target", blank == std::string::npos ? "" : about.substr(blank + 1)},
          {"interval_ms", one.about[word_interval_ms]},
          {"timeout_ms", one.about[word_timeout_ms]},
          {"code", code},
          {"text", qmon_retCodeToStr(code)},
          {"latest_code", one.result[word_last_code]},
          {"rtt_ms", round_trip},
          {"results", one.result[word_results]},
          {"successes", one.result[word_successes]},
          {"changed", one.result[word_changed_at]},
          {"last", last}};
}

// What an operator does about a table that cannot be read.
std::string reason_text(int error) {
  switch (error) {
    case EACCES:
      return "Permission denied; run it as root or as a member of the group qmond";
    case EPROTO:
      return "it is no table of results; qmond makes it anew when it starts";
    default:
      return std::generic_category().message(error);
  }
}

}  // namespace

std::vector<operation_status> read_status() {
  const std::string path = root_path(statistics_path);
  table_view view;
  const int error = view.open(path);
  if (error == ENOENT || (error == 0 && !view.live())) {
    throw failure(exit_not_running, "qmond is not running: no table is kept at " + path);
  }
  if (error != 0) {
    throw failure(exit_failed, path + ": " + reason_text(error));
  }
  std::vector<operation_status> found;
  for (std::uint32_t i = 0; i < view.slots(); ++i) {
    operation_status one;
    if (view.slot(i, &one.result, &one.about)) {
      found.push_back(one);
    }
  }
  std::sort(found.begin(), found.end(), [](const operation_status& a, const operation_status& b) {
    return a.result[word_op_id] < b.result[word_op_id];
  });
  return found;
}

std::string status_text(const std::vector<operation_status>& operations, bool utf8) {
  std::vector<row> rows{{"OPERATION", "TARGET", "CODE", "TEXT", "RTT", "LAST 20"}};
  for (const operation_status& one : operations) {
    const std::uint32_t code = one.result[word_return_code];
    rows.push_back({std::to_string(one.result[word_op_id]), target_text(one), std::to_string(code),
                    qmon_retCodeToStr(code), round_trip_text(one.result),
                    history_bar(one.result, utf8)});
  }
  std::array<std::size_t, 6> widths{};
  for (const row& cells : rows) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      widths[i] = std::max(widths[i], cells[i].size());
    }
  }
  std::string text;
  for (const row& cells : rows) {
    append_row(text, cells, widths);
  }
  return text;
}

std::string status_json(const std::vector<operation_status>& operations) {
  std::string text;
  for (const operation_status& one : operations) {
    text += (text.empty() ? "\n  " : ",\n  ") +
            json_of(one).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
  return '[' + text + (text.empty() ? "]\n" : "\n]\n");
}

int run_status(const std::vector<std::string>& arguments) {
  const bool json = arguments == std::vector<std::string>{"--json"};
  if (!json && !arguments.empty()) {
    throw failure(exit_usage, "status: there is no option \"" + arguments.front() +
                                  "\"; usage: qmond status [--json]");
  }
  std::setlocale(LC_CTYPE, "");
  const bool utf8 = std::string(nl_langinfo(CODESET)) == "UTF-8";
  const std::vector<operation_status> operations = read_status();
  std::cout << (json ? status_json(operations) : status_text(operations, utf8));
  return exit_done;
}

}  // namespace ot::qmond
