#include "tools/trackctl/states.h"

#include <memory>

#include "oper/records/states.h"
#include "platform/ledger_status.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"

namespace ot::trackctl {

std::vector<what_if::present_track> read_states() {
  const ledger_connection connection("/");
  ledger_value value;
  const int code = ledger_item_get(connection.get(), all_states_path + 1, &value);
  return states_of(code, value);
}

std::vector<what_if::present_track> states_of(int code, const ledger_value& value) {
  check_code("preparing the operational records", ot_states_record_register());
  if (code == ledger_no_data) {
    return {};
  }
  check_code("reading the states of the tracks", code);
  state_info__ first{};
  check_code("decoding the states of the tracks",
             brec_decode(state_info___brec, value.bytes(), &first));
  const auto release = [](state_info__* decoded) { brec_release(state_info___brec, decoded); };
  const std::unique_ptr<state_info__, decltype(release)> links(&first, release);
  std::vector<what_if::present_track> states;
  for (const state_info__* each = &first; each != nullptr; each = each->next) {
    states.push_back({std::string(each->Name.view()), static_cast<track_state>(each->State),
                      static_cast<track_state>(each->Source), std::nullopt});
    if (each->Delayed) {
      states.back().delay = {static_cast<track_state>(each->Waiting), each->Remaining};
    }
  }
  return states;
}

const char* word_of(track_state state) noexcept {
  return state == track_state::up ? "up" : state == track_state::down ? "down" : "unknown";
}

}  // namespace ot::trackctl
