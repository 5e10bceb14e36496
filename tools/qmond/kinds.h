// The kinds of operations: one row each, and one file each that knows how to run it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "tools/qmond/config_values.h"
#include "tools/qmond/loop.h"
#include "tools/qmond/operation.h"
#include "tools/qmond/return_code.h"

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

struct kind {
  kind_id id;
  std::string_view word;
  // Host and port of the target's text. Throws value_error. Null where there is no target.
  host_port (*target)(const std::string& text);
  // `where` is the host's address and the port; unset where there is no target. Calls nothing back
  // before it returns. `what` outlives the probe.
  started (*start)(probe_host& host, const operation& what, const address& where, probe_done done);
};

const kind& kind_of(kind_id id) noexcept;
const kind* find_kind(std::string_view word) noexcept;
// "icmp, tcp, ...".
std::string kind_words();

started start_icmp(probe_host& host, const operation& what, const address& where, probe_done done);
started start_tcp(probe_host& host, const operation& what, const address& where, probe_done done);
started start_http(probe_host& host, const operation& what, const address& where, probe_done done);
started start_dns(probe_host& host, const operation& what, const address& where, probe_done done);
started start_command(probe_host& host, const operation& what, const address& where,
                      probe_done done);

}  // namespace ot::qmond
