// The engines' record is a chain, one element a service.
#include "tools/trackctl/engine_reader.h"

#include <algorithm>
#include <memory>

#include "oper/records/engine.h"
#include "platform/status.h"
#include "tools/trackctl/config_session.h"
#include "tools/trackctl/failure.h"
#include "tools/trackctl/track_reader.h"

namespace ot::trackctl {
namespace {

constexpr const char* records_root = "/oper/object_tracking/gl/";

}  // namespace

std::vector<engine_state> read_engine_states() {
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

void require_session_before_delays(const std::string& track, bool made_anew) {
  const auto states = read_engine_states();
  const bool connected = std::any_of(states.begin(), states.end(), [](const engine_state& state) {
    return state.service == "bfd" && state.connected;
  });
  const auto look_at_nothing = [](const track_info__&) {};
  if (!connected && (made_anew || !read_track_record(track, look_at_nothing))) {
    throw failure(exit_refused,
                  "the BFD engine is not connected (see `trackctl engine`), so track \"" + track +
                      "\" has to wait for it, and a track that waits takes no delays; leave them "
                      "out, or come back when the engine is there");
  }
}

}  // namespace ot::trackctl
