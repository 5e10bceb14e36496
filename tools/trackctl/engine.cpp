// "engine": how the running service stands to the services of the router that its tracks need.
#include <iostream>

#include "tools/trackctl/command.h"
#include "tools/trackctl/engine_reader.h"
#include "tools/trackctl/failure.h"

namespace ot::trackctl {

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

  const std::vector<engine_state> states = read_engine_states();
  if (json) {
    std::cout << engine_json(states).dump(2) << '\n';
  } else {
    std::cout << engine_table(states);
  }
  return exit_done;
}

}  // namespace ot::trackctl
