#include "tools/trackctl/kinds/bfd_metrics.h"

#include <array>
#include <memory>

#include "platform/ledger_datalist.h"
#include "platform/ledger_status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

using enum metric_kind;

constexpr std::array state_words{"admin-down", "down", "init", "up"};

constexpr metric session_state{"object_tracking_bfd_session_state", gauge,
                               "1 for the state that the track's session has, 0 for the others."};
constexpr metric detection_time{"object_tracking_bfd_session_detection_time_seconds", gauge,
                                "As negotiated, of sessions where it is known.", "seconds"};

struct session_counter {
  double (*value)(const bfd_session_info__& session);
  metric of;
};
constexpr std::array session_counters{
    session_counter{[](const bfd_session_info__& session) -> double { return session.Ups; },
                    {"object_tracking_bfd_session_ups", counter, "How often it came up."}},
    session_counter{[](const bfd_session_info__& session) -> double { return session.Downs; },
                    {"object_tracking_bfd_session_downs", counter, "How often it went down."}},
    session_counter{
        [](const bfd_session_info__& session) { return static_cast<double>(session.PacketsIn); },
        {"object_tracking_bfd_session_received_packets", counter,
         "Packets of the session that came."}},
    session_counter{
        [](const bfd_session_info__& session) { return static_cast<double>(session.PacketsOut); },
        {"object_tracking_bfd_session_sent_packets", counter,
         "Packets of the session that were sent."}}};

struct page_deleter {
  void operator()(ledger_page* page) const noexcept { ledger_datalist_free(page); }
};

}  // namespace

const char* bfd_state_word(std::uint32_t state) noexcept {
  return state < state_words.size() ? state_words.at(state) : "unknown";
}

void measure_bfd_session(std::string_view track, const bfd_session_info__& session,
                         metrics_text& into) {
  for (std::uint32_t state = 0; state < state_words.size(); ++state) {
    into.add(session_state, {{"track", track}, {"state", state_words.at(state)}},
             session.State == state ? 1 : 0);
  }
  if (session.DetectionTime != 0) {
    into.add(detection_time, {{"track", track}}, session.DetectionTime / 1e6);
  }
  for (const session_counter& each : session_counters) {
    into.add(each.of, {{"track", track}}, each.value(session));
  }
}

void measure_bfd_sessions(metrics_text& into) {
  constexpr std::uint32_t page_size = 4096;  // all, in one page; a page has a limit of bytes, too
  check_code("preparing the operational records", ot_bfd_session_record_register());
  const ledger_connection connection(records_root);
  std::string marker;
  for (bool more = true; more;) {
    ledger_page* read = nullptr;
    const int code =
        ledger_datalist(connection.get(), "bfd_session", marker.c_str(), page_size, &read);
    if (code == ledger_no_data || code == ledger_list_end) {
      return;
    }
    check_code("reading the BFD sessions", code);
    const std::unique_ptr<ledger_page, page_deleter> page(read);
    while (const ledger_entry* const entry = ledger_datalist_next(read)) {
      bfd_session_info__ session;
      check_code("decoding a session", brec_decode(bfd_session_info___brec, entry->data, &session));
      measure_bfd_session(entry->name, session, into);
    }
    more = page->has_continuation;
    marker = page->continuation;
  }
}

}  // namespace ot::trackctl
