// "debug": the service's trace flags are ledger items that can be switched while it runs.
#include <algorithm>
#include <array>
#include <iostream>
#include <string_view>

#include "platform/ledger_status.h"
#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/json_text.h"

namespace ot::trackctl {
namespace {

constexpr const char* flags_root = "/debug/track/";
constexpr std::array flags{"detail", "error", "notification"};

bool read_flag(const ledger_connection& connection, const std::string& flag) {
  ledger_value value;
  const int code = ledger_item_get(connection.get(), flag.c_str(), &value);
  if (code != ledger_no_data) {
    check_code("reading trace flag \"" + flag + "\"", code);
  }
  return code == status_ok && value.as_u32() != 0;
}

void switch_flag(const ledger_connection& connection, const std::string& flag, bool on) {
  const item_value value = u32_value(on ? 1 : 0);
  check_code("switching trace flag \"" + flag + "\"",
             ledger_item_set(connection.get(), flag.c_str(), value.kind, value.bytes));
}

}  // namespace

int run_debug(const arguments& args) {
  command_line app{
      "Show or switch the trace flags of the running service. Traces go where its messages "
      "go.",
      "trackctl debug"};
  app.footer("Example: trackctl debug error on");
  std::string flag;
  std::string position;
  app.add_option("FLAG", flag, "detail, error or notification; none: show all three")
      .one_of({flags.begin(), flags.end()});
  app.add_option("SWITCH", position, "on or off; none: show the flag").one_of({"on", "off"});
  bool json = false;
  app.add_flag("--json", json, "show them as an object of true and false");
  parse_arguments(app, args);

  const ledger_connection connection(flags_root);
  if (!position.empty()) {
    switch_flag(connection, flag, position == "on");
    return exit_done;
  }
  nlohmann::ordered_json shown = nlohmann::ordered_json::object();
  for (const char* const each : flags) {
    if (flag.empty() || flag == each) {
      shown[each] = read_flag(connection, each);
      std::cout << (json ? "" : std::string(each) + (shown[each] ? " on\n" : " off\n"));
    }
  }
  if (json) {
    std::cout << json_text(shown);
  }
  return exit_done;
}

}  // namespace ot::trackctl
