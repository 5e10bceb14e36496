// A route that is in the kernel exactly while the track is up. What cannot be known changes
// nothing: while the service is away, and until it is met, the route stays as it is.
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <system_error>

#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {
namespace {

using settings::value_error;

constexpr std::uint32_t local_table = 255;  // the kernel's own
constexpr std::uint32_t mtu_least = 68;
constexpr std::uint32_t mtu_least_ipv6 = 1280;
constexpr std::uint32_t mtu_most = 65535;
constexpr std::size_t name_max = 15;  // of an interface

class route_reaction : public reaction {
 public:
  route_reaction(const policy& of, host& on) : policy_(of), host_(on) { ask(); }

  void see(const situation& now) override {
    known_ = true;
    state_ = now.state;
    ask();
  }
  void due() override {}
  void change(const policy& to) override {
    policy_ = to;
    ask();
  }
  void remove() override { host_.net().forget_route(policy_.name); }

  [[nodiscard]] report status() const override {
    const outcome now = host_.net().route_outcome(policy_.name);
    report made;
    made.runs = now.changes;
    made.failures = now.refusals;
    made.problem = now.problem;
    const std::string what = text_of(policy_.kept_route);
    if (!known_) {
      made.doing = "waits for the service: " + what;
    } else if (state_ != track_state::up) {
      made.doing = "withheld by " + policy_.track + ": " + what;
    } else if (now.done) {
      made.doing = "installed: " + what;
    } else {
      made.doing = (now.problem.empty() ? "to be installed: " : "refused: ") + what;
    }
    return made;
  }

 private:
  void ask() {
    const wish wanted = !known_ ? wish::keep : (state_ == track_state::up ? wish::yes : wish::no);
    host_.net().keep_route(policy_.name, policy_.kept_route, wanted);
  }

  policy policy_;
  host& host_;
  bool known_ = false;
  track_state state_ = track_state::unknown;
};

ip_address address_value(const toml::node& node) {
  ip_address made;
  if (!parse_address(settings::text_value(node), &made)) {
    throw value_error("must be an IPv4 or IPv6 address");
  }
  return made;
}

std::string interface_value(const toml::node& node) {
  std::string name = settings::text_value(node);
  if (name.size() > name_max || name.find_first_of(" \t\n/") != std::string::npos) {
    throw value_error("must be the name of an interface, of at most 15 characters");
  }
  return name;
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
