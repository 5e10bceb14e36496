#include "tools/trackctl/what_if/report.h"

#include <algorithm>

#include "tools/json.h"
#include "tools/trackctl/columns.h"
#include "tools/trackctl/states.h"

namespace ot::trackctl {
namespace {

using json = nlohmann::ordered_json;

// The 20 ms that the service collects changes for before it computes its lists are no delay.
constexpr std::uint64_t at_once_ms = 100;

std::string when(const what_if::change& change) {
  if (change.after_ms < at_once_ms) {
    return "at once";
  }
  const std::uint64_t tenths = change.after_ms / 100;
  const std::string part = tenths % 10 == 0 ? "" : "." + std::to_string(tenths % 10);
  return "after " + std::to_string(tenths / 10) + part + " s";
}

std::string transition(const what_if::change& change) {
  return change.from + " -> " + change.to;
}

std::string notes(const what_if_report& report) {
  std::string text;
  for (const std::string& track : report.found.unmet) {
    const auto assumed = std::find_if(report.assumptions.begin(), report.assumptions.end(),
                                      [&](const auto& each) { return each.track == track; });
    text += "note: " + track + " does not come " +
            (assumed == report.assumptions.end() ? "there" : word_of(assumed->state)) +
            ": another track's route or session is in its way\n";
  }
  for (const unknown_object& each : report.unknown) {
    text += "note: nothing is known of " + each.object + ", which " + each.track +
            " follows; it counts as not up (assume what it is with " + each.track + "=up)\n";
  }
  return text;
}

}  // namespace

void join_births(what_if::answer& found) {
  std::vector<what_if::change> joined;
  for (what_if::change& change : found.changes) {
    const auto birth = std::find_if(joined.begin(), joined.end(), [&](const auto& before) {
      return before.track == change.track && before.from == "new" && before.to == "unknown" &&
             change.after_ms < at_once_ms;
    });
    if (birth == joined.end()) {
      joined.push_back(std::move(change));
    } else {
      birth->to = change.to;
    }
  }
  found.changes = std::move(joined);
}

std::string what_if_text(const what_if_report& report) {
  std::size_t name_width = 0;
  std::size_t state_width = 0;
  for (const what_if::change& change : report.found.changes) {
    name_width = std::max(name_width, columns_of(change.track));
    state_width = std::max(state_width, columns_of(transition(change)));
  }
  std::string text = report.found.changes.empty() ? "no track would change\n" : "";
  for (const what_if::change& change : report.found.changes) {
    text += padded(change.track, name_width) + "  " + padded(transition(change), state_width) +
            "  " + when(change) + (change.anyway ? ", and anyway: its delay runs" : "") + '\n';
  }
  return text + notes(report);
}

json what_if_json(const what_if_report& report) {
  json assumed = json::array();
  for (const what_if::assumption& each : report.assumptions) {
    assumed.push_back({{"track", each.track}, {"state", word_of(each.state)}});
  }
  json changes = json::array();
  for (const what_if::change& each : report.found.changes) {
    changes.push_back({{"track", each.track},
                       {"from", each.from},
                       {"to", each.to},
                       {"after_ms", each.after_ms},
                       {"anyway", each.anyway}});
  }
  json unknown = json::array();
  for (const unknown_object& each : report.unknown) {
    unknown.push_back({{"track", each.track}, {"object", each.object}});
  }
  return {{"assumed", assumed},
          {"changes", changes},
          {"unmet", report.found.unmet},
          {"not_known", unknown}};
}

}  // namespace ot::trackctl
