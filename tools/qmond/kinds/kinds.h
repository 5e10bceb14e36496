// The kinds of operations: one file and one row each, with its keys in the configuration file and
// the way it is run. Whoever needs to know all kinds walks the rows.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "tools/daemon/loop.h"
#include "tools/qmond/config.h"
#include "tools/qmond/outcome.h"
#include "tools/qmond/values.h"
#include "tools/settings/keys.h"

namespace ot::qmond {

class probe_host;
class address;

// A probe that is under way. Its end gives it up, whatever it waits for.
class probe {
 public:
  probe() noexcept : begun_us_(monotonic_us()) {}
  virtual ~probe() = default;
  probe(const probe&) = delete;
  probe& operator=(const probe&) = delete;

  // From when the round-trip time counts.
  [[nodiscard]] virtual std::uint64_t begun_us() const noexcept { return begun_us_; }

  // What it means that it takes too long.
  [[nodiscard]] virtual return_code late_code() const noexcept { return return_code::no_answer; }

 private:
  std::uint64_t begun_us_;
};

// Called once with what the probe came to, from the event loop; the probe may be ended in it.
using probe_done = std::function<void(return_code)>;

// What a start came to: a probe that is under way, or a result at once. `none` without a probe:
// there is no room at the moment.
struct started {
  std::unique_ptr<probe> running;
  return_code code = return_code::none;
};

// What can be said of an operation in the configuration file.
using key_row = settings::key_row<operation>;
using settings::key_common;  // may stand in [defaults]
using settings::key_required;
inline constexpr unsigned key_network = settings::key_use_next;  // only of kinds with a target
using settings::take_value;

struct kind {
  kind_id id;
  std::string_view word;
  std::span<const key_row> keys;  // beside those that all operations have
  // Host and port of the target's text. Throws value_error. Null where there is no target.
  host_port (*target)(const std::string& text);
  // `where` is the host's address and the port; unset where there is no target. Calls nothing back
  // before it returns. `what` outlives the probe.
  started (*start)(probe_host& host, const operation& what, const address& where, probe_done done);
};

std::span<const std::reference_wrapper<const kind>> all_kinds() noexcept;
const kind& kind_of(kind_id id) noexcept;

extern const kind icmp_kind;
extern const kind tcp_kind;
extern const kind http_kind;
extern const kind dns_kind;
extern const kind command_kind;

}  // namespace ot::qmond
