// Which state each track has, as far as is known, and which policies it concerns. Knows neither
// processes nor files nor the service; its time is the host's.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/trackpolicy/flap_records.h"
#include "tools/trackpolicy/reaction.h"
#include "tools/trackpolicy/state_filter.h"

namespace ot::trackpolicy {

struct known_state {
  track_state state = track_state::unknown;
  std::uint64_t since = 0;
};
using known_states = std::map<std::string, known_state, std::less<>>;

// A policy as it stands.
struct policy_status {
  policy of;
  track_state state = track_state::unknown;
  bool known = false;  // whether the service is reachable
  report at_work;
  filter_report filter;
};

class engine {
 public:
  // `on` outlives the engine. The service counts as gone until the first states come.
  explicit engine(host& on) : host_(on) {}

  // Before the first policies: what an earlier trackpolicy knew of flaps.
  void recall_flaps();
  // Once the events of a turn are done with; writes only after flaps.
  void remember_flaps();

  // Takes over policies: those of the same name, kind and track go on with what they were doing.
  void apply(const std::vector<policy>& policies);

  // All states; a track that is not among them is unknown.
  void set_states(known_states states, const char* reason);
  void change(const std::string& track, const known_state& to);
  void service_gone();

  // The earliest time at which run_due() has something to do; reaction::never: none.
  [[nodiscard]] std::uint64_t next_due_us() const noexcept;
  void run_due();

  [[nodiscard]] std::vector<policy_status> status() const;
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }

 private:
  struct entry {
    policy of;
    std::unique_ptr<reaction> at_work;
    state_filter filter;
  };

  [[nodiscard]] situation situation_of(const std::string& track, const char* reason) const;
  void tell(entry& to, const char* reason);
  void hand_on(entry& to);

  host& host_;
  bool reachable_ = false;
  bool flapped_ = false;  // since they were remembered
  flap_records flaps_of_earlier_;
  known_states states_;
  std::map<std::string, entry> entries_;  // by name
  std::multimap<std::string, entry*, std::less<>> by_track_;
};

}  // namespace ot::trackpolicy
