// "set NAME probe OPERATION": the track follows the results of one operation of the probe service.
// The operation need not be running, nor the service.
#include <memory>
#include <string>

#include "tools/json.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/metrics/text.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl {
namespace {

// The service shows operation 0 as none, and numbers beyond as negative ones.
constexpr number_range operation_range{.unit = "", .least = 1, .most = 2147483647};

items_reader define(command_line& app) {
  auto operation = std::make_shared<std::string>();
  app.add_option("OPERATION", *operation, "the number of the probe operation, its id at qmond")
      .required();
  return [operation]() -> std::vector<config_item> {
    return {{"type/prb/0x5/op_id",
             u32_value(parse_number("probe operation", *operation, operation_range))}};
  };
}

std::string write(const track_items& items, std::string_view /*folder*/,
                  const member_order& /*order*/) {
  return std::to_string(item_number(items, "type/prb/0x5/op_id"));
}

nlohmann::ordered_json object(const track_type_info& info) {
  const prb_track_info__& probe = info.QmonTracks;
  return {{"operation", probe.QmonOpId}, {"return_code", probe.ReturnCode}, {"rtt_ms", probe.RTT}};
}

constexpr metric return_code{"object_tracking_probe_return_code", metric_kind::gauge,
                             "Of the operation's latest result: 1 success, 0 no result yet, others "
                             "as qmond(8) lists them."};
constexpr metric round_trip{"object_tracking_probe_round_trip_seconds", metric_kind::gauge,
                            "Of the operation's latest result, if it was a success.", "seconds"};
constexpr std::uint32_t succeeded = 1;

void measure(std::string_view track, const track_type_info& info, metrics_text& into) {
  const prb_track_info__& probe = info.QmonTracks;
  const std::string operation = std::to_string(probe.QmonOpId);
  into.add(return_code, {{"track", track}, {"operation", operation}}, probe.ReturnCode);
  if (probe.ReturnCode == succeeded) {
    into.add(round_trip, {{"track", track}, {"operation", operation}}, probe.RTT / 1000.0);
  }
}

bool awaits_result(const track_type_info& info) {
  return info.QmonTracks.ReturnCode == 0;
}

}  // namespace

// An operation's number cannot change in place: the service holds it against the track's type.
constinit const track_kind probe_kind{
    .word = "probe",
    .type = track_type::probe,
    .folder = "type/prb/0x5/",
    .summary = "the results of an operation of the probe service",
    .arguments = "OPERATION",
    .example = "website probe 7 --delay-down 10",
    .recreate_on_change = true,
    .define = define,
    .write = write,
    .exclusive =
        [](const track_items& items) { return "probe operation " + write(items, {}, nullptr); },
    .only_one = "only one track can follow an operation; make one a list of the other",
    .object = object,
    .awaits_result = awaits_result,
    .measure = measure,
    .service = {"probe", "probe service", "operation without a result",
                "operations without a result"}};

}  // namespace ot::trackctl
