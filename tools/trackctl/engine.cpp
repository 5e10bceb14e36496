// "engine": how the running service stands to the services of the router that its tracks need.
#include <iostream>
#include <memory>

#include "oper/engine_record.h"
#include "platform/status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/config_session.h"
#include "tools/trackctl/engine_view.h"
#include "tools/trackctl/failure.h"

namespace ot::trackctl {
namespace {

constexpr const char* records_root = "/oper/object_tracking/gl/";

std::vector<engine_state> read_states() {
  if (const int code = ot_engine_record_register(); code != duplicate_key) {
    check_code("preparing the operational record", code);
  }
  const ledger_connection connection(records_root);
  ledger_value value;
  check_code("reading the state of the engines",
             ledger_item_get(connection.get(), "engine/all", &value));
  engine_info__ record{};
  check_code("decoding the state of the engines",
             brec_decode(engine_info___brec, value.bytes(), &record));
  const auto release = [](engine_info__* decoded) { brec_release(engine_info___brec, decoded); };
  const std::unique_ptr<engine_info__, decltype(release)> links(&record, release);
  std::vector<engine_state> states;
  for (const engine_info__* each = &record; each != nullptr; each = each->next) {
    states.push_back({std::string(each->Service.view()), each->Connected,
                      static_cast<std::int64_t>(each->Since), each->Pending});
  }
  return states;
}

}  // namespace

int run_engine(const arguments& args) {
  CLI::App app{
      "Show whether the service is connected to what its tracks need, since when, and what waits "
      "for it: the BFD engine, the probe service, the FIB and the interface manager.",
      "trackctl engine"};
  app.footer(
      "Example: trackctl engine --json | jq -e '.[] | select(.service == \"bfd\").connected'");
  bool json = false;
  app.add_flag("--json", json, "for programs: an array of objects, times in UTC");
  parse_arguments(app, args);

  const std::vector<engine_state> states = read_states();
  if (json) {
    std::cout << engine_json(states).dump(2) << '\n';
  } else {
    std::cout << engine_table(states);
  }
  return exit_done;
}

}  // namespace ot::trackctl
