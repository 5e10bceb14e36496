// The service keeps what changed and when; everything that is made of it is made here.
#include "tools/trackctl/history.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <memory>

#include "oper/records/history.h"
#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/events.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

const char* cause_word(std::uint32_t cause) {
  constexpr std::array words{"object", "delay", "list", "configuration", "restart"};
  return cause < words.size() ? words[cause] : "other";
}

void register_records() {
  if (const int code = ot_history_record_register(); code != duplicate_key) {
    check_code("preparing the history's records", code);
  }
}

history_info__ read_extent(const ledger_connection& connection) {
  ledger_value value;
  const int code = ledger_item_get(connection.get(), "history/extent", &value);
  if (code == ledger_no_data) {
    throw failure(exit_refused,
                  "the service keeps no history: it is of an older version; restart it");
  }
  check_code("reading the history", code);
  history_info__ extent;
  check_code("decoding the history", brec_decode(history_info___brec, value.bytes(), &extent));
  return extent;
}

past_change decoded(const ledger_entry& entry) {
  history_change__ record;
  check_code("decoding the history", brec_decode(history_change___brec, entry.data, &record));
  return {record.Number,
          from_epoch(milliseconds(record.When)),
          std::string(record.TrackName.view()),
          event_state_word(record.From),
          event_state_word(record.To),
          cause_word(record.Cause),
          std::nullopt};
}

// Appends what is behind the change of that number.
void read_behind(const ledger_connection& connection, std::uint64_t number,
                 std::vector<past_change>& ret) {
  std::string marker = number == 0 ? "" : std::to_string(number);
  for (bool more = true; more;) {
    ledger_page* page = nullptr;
    const int code =
        ledger_datalist(connection.get(), "history", marker.c_str(), ot::history_page, &page);
    if (code == ledger_no_data || code == ledger_list_end) {
      return;
    }
    check_code("reading the history", code);
    const std::unique_ptr<ledger_page, decltype(&ledger_datalist_free)> owner(page,
                                                                              ledger_datalist_free);
    while (const ledger_entry* entry = ledger_datalist_next(page)) {
      ret.push_back(decoded(*entry));
    }
    more = page->has_continuation;
    marker = page->continuation;
  }
}

}  // namespace

kept_history read_history() {
  kept_history history;
  read_on(history);
  return history;
}

bool read_on(kept_history& history) {
  register_records();
  const ledger_connection connection(records_root);
  const history_info__ extent = read_extent(connection);
  const moment since = from_epoch(milliseconds(extent.Since));
  if (history.since != since) {
    history = {since, true, {}};
  }
  const std::size_t before = history.changes.size();
  read_behind(connection, before == 0 ? 0 : history.changes.back().number, history.changes);
  fill_lasted(history.changes);
  history.complete = history.changes.empty() || history.changes.front().number == 1;
  return history.changes.size() != before;
}

void fill_lasted(std::vector<past_change>& changes) {
  std::map<std::string_view, const past_change*> latest;
  for (past_change& change : changes) {
    const past_change*& before = latest[change.track];
    if (before != nullptr && before->to == change.from && before->when <= change.when) {
      change.lasted = std::chrono::duration_cast<milliseconds>(change.when - before->when);
    }
    before = &change;
  }
}

track_summary summary_of(const kept_history& history, const std::string& track,
                         const std::string& state, moment since, moment now) {
  const kept_history own = chosen(history, track, moment::min());
  const bool known =
      own.changes.empty() || (history.complete && own.changes.front().from != "unknown");
  const moment begin = std::max(known ? history.since : own.changes.front().when, since);
  const bool gone = state == "gone" && !own.changes.empty();
  const moment end = std::max(gone ? own.changes.back().when : now, begin);
  track_summary summary{track, state, begin, end};
  std::string present = own.changes.empty() ? state : own.changes.front().from;
  moment at = begin;
  const auto go_to = [&](moment when) {
    if (when > at) {
      summary.up += present == "up" ? when - at : moment::duration(0);
      at = when;
    }
  };
  for (const past_change& change : own.changes) {
    go_to(change.when);
    summary.flaps += change.from == "up" && change.when >= begin ? 1 : 0;
    present = change.to;
  }
  go_to(end);
  return summary;
}

kept_history chosen(const kept_history& history, const std::string& track, moment since) {
  kept_history result{history.since, history.complete, {}};
  std::copy_if(history.changes.begin(), history.changes.end(), std::back_inserter(result.changes),
               [&](const past_change& change) {
                 return change.when >= since && (track.empty() || change.track == track);
               });
  return result;
}

}  // namespace ot::trackctl
