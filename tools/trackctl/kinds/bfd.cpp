// "set NAME bfd ADDRESS --interface IF": the track follows a BFD session that the service has the
// BFD engine run. All but the address stands in the item's path.
#include <arpa/inet.h>

#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "platform/bfd_client.h"
#include "platform/bfd_status.h"
#include "platform/ledger_status.h"
#include "sources/bfd/session_record.h"
#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/kinds/bfd_metrics.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/track.h"

namespace ot::trackctl {
namespace {

constexpr number_range rate_range{
    .unit = " of milliseconds", .least = bfdc_rate_min, .most = bfdc_rate_max};
constexpr number_range debounce_range{
    .unit = " of packets", .least = bfdc_debounce_min, .most = bfdc_debounce_max};

struct bfd_options {
  std::string address;
  std::string interface;
  std::string rate = "300";
  std::string debounce = "3";
  bool shared = false;
};

// Network byte order.
std::uint32_t parse_peer(const std::string& text) {
  in_addr parsed{};
  if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) {
    throw failure(exit_usage,
                  "peer \"" + text + "\" is not an IPv4 address; give one such as 192.0.2.1");
  }
  const std::uint32_t host = ntohl(parsed.s_addr);
  if (host >> 24 == 0 || IN_MULTICAST(host) || IN_BADCLASS(host)) {
    throw failure(exit_usage, "peer \"" + text +
                                  "\" is no single host; give the address of the router at the "
                                  "other end");
  }
  return parsed.s_addr;
}

std::string item_path(const bfd_options& options) {
  char numbers[64];
  std::snprintf(numbers, sizeof numbers, "rate/0x%x/debounce_count/0x%x/",
                parse_number("--rate", options.rate, rate_range),
                parse_number("--debounce", options.debounce, debounce_range));
  return std::string{"type/bfdprb/0x9/"} + numbers + "Interface/" + options.interface +
         "/destaddress";
}

items_reader define(command_line& app) {
  auto options = std::make_shared<bfd_options>();
  app.add_option("ADDRESS", options->address, "the peer, such as 192.0.2.1").required();
  app.add_option("--interface", options->interface, "the interface it is reached over").required();
  app.add_option("--rate", options->rate,
                 "milliseconds between two packets (10 to 60000; left out: 300)");
  app.add_option("--debounce", options->debounce,
                 "packets missed in a row until the session is down (1 to 255; left out: 3)");
  app.add_flag("--shared", options->shared,
               "allow another track on the same session: only the newest follows it, and deleting "
               "either ends it for both");
  return [options]() -> std::vector<config_item> {
    check_interface_name(options->interface);
    const std::uint32_t peer = parse_peer(options->address);
    return {{item_path(*options), tuple_value({peer})}};
  };
}

// The one item that holds everything, "type/bfdprb/0x9/rate/R/debounce_count/N/Interface/IF/
// destaddress"; without an interface when there is none such.
struct stored_session {
  std::uint32_t rate = 0;
  std::uint32_t debounce = 0;
  std::string interface;
  std::uint32_t peer = 0;
};

stored_session session_of(const track_items& items) {
  stored_session session;
  for (const auto& [path, value] : items) {
    char interface[64] = "";
    if (std::sscanf(path.c_str(), "type/bfdprb/0x9/rate/%x/debounce_count/%x/Interface/%63[^/]/",
                    &session.rate, &session.debounce, interface) == 3) {
      session.interface = interface;
      session.peer = item_addresses(items, path).first;
    }
  }
  return session;
}

std::string write(const track_items& items, std::string_view /*folder*/,
                  const member_order& /*order*/) {
  const stored_session session = session_of(items);
  return address_text(session.peer) + " --interface " + session.interface + " --rate " +
         std::to_string(session.rate) + " --debounce " + std::to_string(session.debounce);
}

std::string exclusive(const track_items& items) {
  const stored_session session = session_of(items);
  return address_text(session.peer) + " over " + session.interface;
}

// Of two tracks on one session only the newest follows it, which nobody expects.
void check_others(const std::string& track, const command_line& app) {
  if (app.count("--shared") != 0) {
    return;
  }
  const std::string interface = app.values("--interface").front();
  const std::uint32_t peer = parse_peer(app.values("ADDRESS").front());
  read_track_records([&](const track_info__& record) {
    const bfdprb_track_info__& bfd = record.TrackTypeInfo.BFDTracks;
    if (record.Type == track_type::bfd && record.TrackeName.view() != track &&
        bfd.InterfaceName.view() == interface && bfd.DestinationAddress == peer) {
      throw failure(exit_refused,
                    "track \"" + std::string(record.TrackeName.view()) +
                        "\" has this session already, and of several tracks on one session only "
                        "the newest follows it; use that track, in a list of one member if it "
                        "needs another name or delays (trackctl set " +
                        track + " and " + std::string(record.TrackeName.view()) +
                        "), or give --shared");
    }
  });
}

nlohmann::ordered_json object(const track_type_info& info) {
  const bfdprb_track_info__& bfd = info.BFDTracks;
  return {{"interface", bfd.InterfaceName.view()},
          {"destination", address_text(bfd.DestinationAddress)},
          {"rate", bfd.Rate},
          {"debounce", bfd.DebounceCount}};
}

std::string_view diagnostic_text(std::uint32_t diagnostic) noexcept {
  return diagnostic < std::size(bfd_diagnostic_texts) ? bfd_diagnostic_texts[diagnostic]
                                                      : "unknown";
}

nlohmann::ordered_json milliseconds(std::uint32_t usec) {
  return usec == 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(usec / 1000.0);
}

nlohmann::ordered_json session_json(const bfd_session_info__& session) {
  const std::string problem{session.Problem.view()};
  return {{"state", bfd_state_word(session.State)},
          {"diagnostic", diagnostic_text(session.Diagnostic)},
          {"remote_state", bfd_state_word(session.RemoteState)},
          {"remote_diagnostic", diagnostic_text(session.RemoteDiagnostic)},
          {"transmit_ms", milliseconds(session.TransmitInterval)},
          {"receive_ms", milliseconds(session.ReceiveInterval)},
          {"detection_ms", milliseconds(session.DetectionTime)},
          {"packets_in", session.PacketsIn},
          {"packets_out", session.PacketsOut},
          {"ups", session.Ups},
          {"downs", session.Downs},
          {"of_another", session.OfAnother},
          {"followed_by", session.FollowedBy.view()},
          {"problem",
           problem.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(problem)}};
}

// Null when the track has gone meanwhile.
nlohmann::ordered_json live(const std::string& track) {
  check_code("preparing the operational records", ot_bfd_session_record_register());
  const ledger_connection connection(records_root);
  ledger_value value;
  const int code = ledger_item_get(connection.get(), ("bfd_session/" + track).c_str(), &value);
  if (code == ledger_no_data) {
    return {{"session", nullptr}};
  }
  check_code("reading the session of track \"" + track + "\"", code);
  bfd_session_info__ session;
  check_code("decoding a session", brec_decode(bfd_session_info___brec, value.bytes(), &session));
  return {{"session", session_json(session)}};
}

}  // namespace

// The service makes such a track only where none is, and looks at nothing but the address.
constinit const track_kind bfd_kind{
    .word = "bfd",
    .type = track_type::bfd,
    .folder = "type/bfdprb/0x9/",
    .summary = "a BFD session with a router at the other end of an interface",
    .arguments = "ADDRESS --interface IF [--rate MS] [--debounce N]",
    .example = "peer bfd 192.0.2.1 --interface eth0 --rate 50 --debounce 3",
    .recreate_on_change = true,
    .only_from_nothing = true,
    .define = define,
    .write = write,
    .exclusive = exclusive,
    .only_one =
        "of several tracks on one session only the newest follows it; give --shared to "
        "each, or make one a list of the other",
    .sharable = true,
    .check = check_others,
    .object = object,
    .live = live,
    .measure_all = measure_bfd_sessions,
    .service = {"bfd", "BFD engine", "session that is not run", "sessions that are not run",
                "malformed, from afar, or of no session"}};

}  // namespace ot::trackctl
