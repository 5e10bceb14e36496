// The list of all kinds, and the way from an operation to its probe: hosts that are given by name
// are resolved first, at every probe, so that a change of the name is followed. The time that takes
// is no round-trip time.
#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>

#include "tools/qmond/kinds/host.h"
#include "tools/settings/kinds.h"

namespace ot::qmond {
namespace {

constexpr std::array<std::reference_wrapper<const kind>, 5> kinds{icmp_kind, tcp_kind, http_kind,
                                                                  dns_kind, command_kind};

// A kind may find that the loop has no room for another descriptor.
started start_kind(probe_host& host, const operation& what, const address& where,
                   const probe_done& done) {
  try {
    return kind_of(what.kind).start(host, what, where, done);
  } catch (const std::system_error&) {
    return {.running = nullptr, .code = return_code::cannot_run};
  }
}

class named_probe : public probe {
 public:
  named_probe(probe_host& host, const operation& what, probe_done done)
      : host_(host), what_(what), done_(std::move(done)) {}

  // Whether the name was found, or not found, at once: then `ret` is what the start came to.
  bool look_up(started* ret) {
    const int family = what_.source.empty()                          ? AF_UNSPEC
                       : what_.source.find(':') == std::string::npos ? AF_INET
                                                                     : AF_INET6;
    query_ = host_.names.look_up(what_.host, family, what_.port, what_.timeout_ms,
                                 [this](const address& found) { go_on(found); });
    if (query_->answered()) {
      *ret = start(query_->answer());
      return true;
    }
    return false;
  }

  [[nodiscard]] std::uint64_t begun_us() const noexcept override {
    return inner_ == nullptr ? probe::begun_us() : inner_->begun_us();
  }

  [[nodiscard]] return_code late_code() const noexcept override {
    return inner_ == nullptr ? return_code::name_not_resolved : inner_->late_code();
  }

 private:
  started start(const address& found) {
    if (!found.set()) {
      return {.running = nullptr, .code = return_code::name_not_resolved};
    }
    return start_kind(host_, what_, found, done_);
  }

  void go_on(const address& found) {
    started begun = start(found);
    inner_ = std::move(begun.running);
    if (inner_ == nullptr) {
      const probe_done done = done_;
      done(begun.code == return_code::none ? return_code::cannot_run : begun.code);
    }
  }

  probe_host& host_;
  const operation& what_;
  probe_done done_;
  std::unique_ptr<name_query> query_;
  std::unique_ptr<probe> inner_;
};

}  // namespace

std::span<const std::reference_wrapper<const kind>> all_kinds() noexcept {
  return kinds;
}

const kind& kind_of(kind_id id) noexcept {
  return settings::kind_of(all_kinds(), id);
}

started start_probe(probe_host& host, const operation& what, probe_done done) {
  const address literal = address::from_text(what.host, what.port);
  if (literal.set() || what.host.empty()) {
    return start_kind(host, what, literal, done);
  }
  auto named = std::make_unique<named_probe>(host, what, std::move(done));
  started begun;
  try {
    if (named->look_up(&begun)) {
      return begun;
    }
  } catch (const std::runtime_error&) {  // also of the loop, which had no room
    return {.running = nullptr, .code = return_code::name_not_resolved};
  }
  return {.running = std::move(named), .code = return_code::none};
}

}  // namespace ot::qmond
