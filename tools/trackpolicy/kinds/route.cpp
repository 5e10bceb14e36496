// A route that is in the kernel exactly while the track is up. What cannot be known changes
// nothing: while the service is away, and until it is met, the route stays as it is.
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <system_error>

#include "tools/trackpolicy/kinds/keeping.h"

namespace ot::trackpolicy {
namespace {

using settings::value_error;

constexpr std::uint32_t local_table = 255;  // the kernel's own
constexpr std::uint32_t mtu_least = 68;
constexpr std::uint32_t mtu_least_ipv6 = 1280;
constexpr std::uint32_t mtu_most = 65535;

class route_reaction final : public keeping_reaction {
 public:
  route_reaction(const policy& of, host& on) : keeping_reaction(of, on) { ask(); }

  void remove() override { net().forget_route(of().name); }

  [[nodiscard]] report status() const override {
    const outcome now = net().route_outcome(of().name);
    report made = report_of(now);
    const std::string what = text_of(of().kept_route);
    if (!known()) {
      made.doing = "waits for a state: " + what;
    } else if (state() != track_state::up) {
      made.doing = "withheld by " + of().track + ": " + what;
    } else if (now.done) {
      made.doing = "installed: " + what;
    } else {
      made.doing = (now.problem.empty() ? "to be installed: " : "refused: ") + what;
    }
    return made;
  }

 private:
  void ask() override {
    const wish wanted = !known() ? wish::keep : (state() == track_state::up ? wish::yes : wish::no);
    net().keep_route(of().name, of().kept_route, wanted);
  }
};

ip_address address_value(const toml::node& node) {
  ip_address made;
  if (!parse_address(settings::text_value(node), &made)) {
    throw value_error("must be an IPv4 or IPv6 address");
  }
  return made;
}

void take_prefix(const toml::node& node, policy& to) {
  const std::string text = settings::text_value(node);
  route& made = to.kept_route;
  if (text == "default") {
    made.to = {};
    made.length = 0;
    return;
  }
  const std::size_t slash = text.find('/');
  const std::string digits = slash == std::string::npos ? "" : text.substr(slash + 1);
  unsigned length = 0;
  const auto [end, wrong] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
  ip_address address;
  if (!parse_address(text.substr(0, slash), &address) || wrong != std::errc() ||
      end != digits.data() + digits.size() || length > size_of_address(address.family) * 8) {
    throw value_error(R"(must be "default" or a prefix such as "192.0.2.0/24" or "2001:db8::/32")");
  }
  made.length = static_cast<std::uint8_t>(length);
  made.to = masked(address, made.length);
  if (made.to != address) {
    throw value_error("has bits behind its length; \"" + text_of(made.to) + '/' + digits +
                      "\" is the network");
  }
}

// A row's function for a member of the route.
template <auto member, auto read, auto... bounds>
void take_part(const toml::node& node, policy& to) {
  to.kept_route.*member = read(node, bounds...);
}

std::uint32_t table_value(const toml::node& node) {
  const std::uint32_t number = settings::number_value(node, 1, UINT32_MAX);
  if (number == local_table) {
    throw value_error("is the kernel's own table of local addresses");
  }
  return number;
}

constexpr std::array own_keys{
    key_row{"to", take_prefix, settings::key_required},
    key_row{"via", take_part<&route::via, address_value>},
    key_row{"dev", take_part<&route::dev, interface_value>},
    key_row{"metric", take_part<&route::metric, settings::number_value, 0U, UINT32_MAX>},
    key_row{"table", take_part<&route::table, table_value>},
    key_row{"vrf", take_part<&route::vrf, interface_value>},
    key_row{"source", take_part<&route::source, address_value>},
    key_row{"mtu", take_part<&route::mtu, settings::number_value, mtu_least, mtu_most>},
    key_row{"onlink", take_part<&route::onlink, settings::truth_value>},
};

void check(const toml::table& table, const policy& of, settings::problem_list& problems) {
  const route& what = of.kept_route;
  const std::uint8_t family = family_of(what);
  const auto place = [&table](const char* key) { return table.get(key)->source(); };
  const auto other = [family](const ip_address& one) {
    return one.family != 0 && one.family != family;
  };
  const bool link_local = what.via.family == AF_INET6 && what.via.bytes[0] == 0xfe &&
                          (what.via.bytes[1] & 0xc0) == 0x80;
  if (other(what.via)) {
    problems.add(place("via"), "via: must be of the same family as \"to\"");
  }
  if (other(what.source)) {
    problems.add(place("source"), "source: must be of the same family as \"to\"");
  }
  if (what.via.family == 0 && what.dev.empty()) {
    problems.add(table.source(), "the route leads nowhere: \"via\", \"dev\" or both");
  }
  if (what.dev.empty() && link_local) {
    problems.add(place("via"), "via: a link-local gateway needs \"dev\"");
  }
  if (what.onlink && (what.via.family == 0 || what.dev.empty())) {
    problems.add(place("onlink"), "onlink: needs \"via\" and \"dev\"");
  }
  if (!what.vrf.empty() && table.contains("table")) {
    problems.add(place("vrf"), "either \"table\" or \"vrf\", not both");
  }
  if (family == AF_INET6 && what.mtu != 0 && what.mtu < mtu_least_ipv6) {
    problems.add(place("mtu"), "mtu: IPv6 needs 1280 at least");
  }
}

std::unique_ptr<reaction> make(const policy& of, host& on) {
  return std::make_unique<route_reaction>(of, on);
}

std::string describe(const policy& of, track_state state) {
  return std::string(state == track_state::up ? "installs" : "withdraws") + " the route " +
         text_of(of.kept_route);
}

}  // namespace

constinit const kind route_kind{
    .id = kind_id::route,
    .word = "route",
    .keys = own_keys,
    .check = check,
    .make = make,
    .describe = describe,
};

}  // namespace ot::trackpolicy
