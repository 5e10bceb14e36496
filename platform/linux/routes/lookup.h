// Longest-match look-ups in the kernel's IPv4 routing tables.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>

#include "platform/common/watched_prefixes.h"
#include "platform/fib_client.h"
#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/netlink/socket.h"
#include "platform/linux/routes/policy_rules.h"
#include "platform/linux/routes/record.h"
#include "platform/linux/routes/table_contents.h"

namespace ot {

class route_lookup {
 public:
  // Opens the request socket. 0 or an errno value.
  int open() noexcept;

  // Returns once the change is whole that the kernel is at. It announces changes of links and
  // addresses before it has taken their routes away, so without this a look-up upon such an event
  // may be early, and may give an interface a name that it had before.
  void await_change() noexcept;

  // Something changed: what was read of one table, by the kernel's number, or of all is old. The
  // rules are read again after a change of theirs only.
  void forget_table(std::uint32_t table) noexcept { tables_.erase(table); }
  void forget_tables() noexcept { tables_.clear(); }
  void forget_rules() noexcept { hidden_.reset(); }
  void forget_names() noexcept { names_.fill({}); }

  // The longest match of the prefix's address in the table of that id (vrf_devices.h). A route
  // whose next hops are all dead, or that refuses packets, is none; what the kernel keeps for
  // addresses is none either. Of an address of the router's own, to which the kernel sends nothing
  // by a host route, it is the longest match of those to more than it; for a prefix of length 32 it
  // may be left out, since the address itself is its answer. The answer's links are those of the
  // routes that decided it, usable or not, and the VRF's device. 0 or an errno value.
  int find(const fib_prefix& wanted, fib_answer* ret) noexcept;

  // Asks the kernel about all of these together, which takes half the time; the next look-ups of
  // them in this order use the answers. At most netlink_socket::questions_at_once. None ends that:
  // answers do not keep.
  void ask_ahead(std::span<const fib_prefix> wanted) noexcept;

  // Whether look-ups have read whole tables since it was last counted anew.
  void count_tables_anew() noexcept { has_read_tables_ = false; }
  [[nodiscard]] bool has_read_tables() const noexcept { return has_read_tables_; }

 private:
  struct early_answer {
    std::uint32_t address = 0;
    std::uint32_t vrf = 0;
    int status = 0;
    std::optional<route_record> route;
  };
  struct named_interface {
    std::uint32_t ifindex = 0;
    fixed_text<64> name;
  };

  enum class table_state { answered, without_match, hidden, unknown };

  static nlmsghdr* question(std::span<char> room, std::uint32_t address,
                            const vrf_device& vrf) noexcept;
  bool take_early(std::uint32_t address, const vrf_device& vrf, std::optional<route_record>* ret,
                  int* ret_status) noexcept;
  int ask(std::uint32_t address, const vrf_device& vrf, std::optional<route_record>* ret) noexcept;
  table_state says_about(const std::optional<route_record>& answer, const vrf_device& vrf,
                         bool of_neighbour) noexcept;
  int find_in_contents(std::uint32_t address, const vrf_device& vrf, fib_answer* ret) noexcept;
  int contents_of(std::uint32_t table, const table_contents** ret) noexcept;
  std::optional<bool> is_up(std::uint32_t ifindex) noexcept;  // nothing: it could not be asked
  hidden_tables hidden_by_rules() noexcept;
  table_state without_answer(const vrf_device& vrf) noexcept;
  void take(const route_record& route, fib_answer* ret) noexcept;
  void take_own(const route_record& route, fib_answer* ret) noexcept;
  const fixed_text<64>& name_of(std::uint32_t ifindex) noexcept;

  netlink_socket requests_;
  std::array<early_answer, netlink_socket::questions_at_once> early_;
  std::size_t early_begin_ = 0;
  std::size_t early_end_ = 0;
  std::optional<hidden_tables> hidden_;             // as the rules were last read
  std::map<std::uint32_t, table_contents> tables_;  // by the kernel's number
  bool has_read_tables_ = false;
  std::array<named_interface, 64> names_;  // by the ifindex's last bits
};

}  // namespace ot
