// The keys that all operations have, what must be there, and what two keys say about each other.
// The keys of one kind are in its row; single values are read by values.cpp.
#include "tools/qmond/operation_keys.h"

#include <net/if.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "tools/qmond/kinds/kinds.h"
#include "tools/qmond/values.h"
#include "tools/settings/kinds.h"

namespace ot::qmond {
namespace {

// What a track can name.
constexpr std::uint32_t id_max = 2147483647;
constexpr std::uint32_t interval_min = 100;
constexpr std::uint32_t interval_max = 24 * 3600 * 1000;
constexpr std::uint32_t timeout_min = 10;
constexpr std::uint32_t count_max = 100;

std::string device_value(const toml::node& node) {
  std::string name = text_value(node);
  if (name.size() >= IFNAMSIZ || name.find('/') != std::string::npos) {
    throw value_error("must be the name of an interface, at most 15 characters");
  }
  return name;
}

std::string source_value(const toml::node& node) {
  std::string address = text_value(node);
  if (!is_address(address)) {
    throw value_error("must be an IPv4 or IPv6 address");
  }
  return address;
}

void take_target(const toml::node& node, operation& to) {
  to.target = text_value(node);
  const host_port found = kind_of(to.kind).target(to.target);
  to.host = found.host;
  to.port = found.port;
}

constexpr std::array general_keys{
    key_row{"id", take_value<&operation::id, number_value, 1, id_max>, key_required},
    key_row{"kind", [](const toml::node&, operation&) {}},  // read before
    key_row{"target", take_target, key_required | key_network},
    key_row{"interval",
            take_value<&operation::interval_ms, duration_value, interval_min, interval_max>,
            key_common},
    key_row{"timeout",
            take_value<&operation::timeout_ms, duration_value, timeout_min, interval_max>,
            key_common},
    key_row{"rise", take_value<&operation::rise, number_value, 1, count_max>, key_common},
    key_row{"fall", take_value<&operation::fall, number_value, 1, count_max>, key_common},
    key_row{"source", take_value<&operation::source, source_value>, key_common | key_network},
    key_row{"interface", take_value<&operation::device, device_value>, key_common | key_network},
    key_row{"vrf", take_value<&operation::device, device_value>, key_common | key_network},
};

// Where the kind is none, nobody knows what a target is.
constexpr key_row any_target{"target",
                             [](const toml::node& node, operation&) { (void)text_value(node); }};

// All keys of operations of that kind, in the order in which missing ones are reported.
std::vector<const key_row*> keys_of(const kind& of) {
  std::vector<const key_row*> keys;
  for (const key_row& key : general_keys) {
    if ((key.use & key_network) == 0 || of.target != nullptr) {
      keys.push_back(&key);
    }
  }
  for (const key_row& own : of.keys) {
    keys.push_back(&own);
  }
  return keys;
}

const key_row* find_key(const std::vector<const key_row*>& keys, std::string_view name) noexcept {
  const auto row =
      std::find_if(keys.begin(), keys.end(), [&](const key_row* key) { return key->name == name; });
  return row == keys.end() ? nullptr : *row;
}

// The key of whatever kind has it, or null.
const key_row* find_key(std::string_view name) {
  for (const kind& each : all_kinds()) {
    if (const key_row* const row = find_key(keys_of(each), name)) {
      return row;
    }
  }
  return nullptr;
}

// The names of keys whose values are no good.
using bad_keys = std::set<std::string_view>;

// Null, with the problem reported, when an operation of that kind has no such key; null for a kind
// means that it is none.
const key_row* key_for(const kind* of, const toml::key& key, problem_list& problems) {
  const key_row* const any = find_key(key.str());
  if (any == nullptr) {
    problems.add(key.source(), "there is no key \"" + std::string(key.str()) + "\"");
    return nullptr;
  }
  if (of == nullptr) {
    return any->name == any_target.name ? &any_target : any;
  }
  const key_row* const own = find_key(keys_of(*of), key.str());
  if (own == nullptr) {
    problems.add(key.source(), "an operation of kind " + std::string(of->word) + " has no \"" +
                                   std::string(key.str()) + "\"");
  }
  return own;
}

bad_keys read_keys(const toml::table& table, const kind* of, operation& to,
                   problem_list& problems) {
  bad_keys bad;
  for (const auto& [key, node] : table) {
    const key_row* const row = key_for(of, key, problems);
    if (row != nullptr && !take_key(*row, node, to, problems)) {
      bad.insert(row->name);
    }
  }
  return bad;
}

void check_required(const toml::table& table, const std::vector<const key_row*>& keys,
                    problem_list& problems) {
  for (const key_row* const row : keys) {
    if ((row->use & key_required) != 0 && !table.contains(row->name)) {
      problems.add(table.source(), "the operation has no \"" + std::string(row->name) + "\"");
    }
  }
}

void check_device(const toml::table& table, problem_list& problems) {
  if (table.contains("interface") && table.contains("vrf")) {
    problems.add(table.get("vrf")->source(), "either \"interface\" or \"vrf\", not both");
  }
}

// What only several keys together can get wrong; where one of them is wrong, nothing is said of
// both.
void check_together(const toml::table& table, const operation& one, const bad_keys& bad,
                    problem_list& problems) {
  if (one.timeout_ms > one.interval_ms && table.contains("timeout") && !bad.contains("timeout") &&
      !bad.contains("interval")) {
    problems.add(table.get("timeout")->source(), "timeout: must not be longer than the interval");
  }
  const bool both_known = !one.source.empty() && is_address(one.host) && !bad.contains("source");
  if (both_known &&
      (one.source.find(':') == std::string::npos) != (one.host.find(':') == std::string::npos)) {
    const toml::node* const source = table.get("source");
    problems.add(source == nullptr ? table.source() : source->source(),
                 "source: is not of the target's address family");
  }
}

}  // namespace

void read_common_keys(const toml::table& table, operation* ret, problem_list& problems) {
  for (const auto& [key, node] : table) {
    const key_row* const row = find_key(key.str());
    if (row == nullptr || (row->use & key_common) == 0) {
      problems.add(key.source(), "\"" + std::string(key.str()) + "\" cannot stand in [defaults]");
    } else {
      (void)take_key(*row, node, *ret, problems);
    }
  }
  check_device(table, problems);
}

bool read_operation(const toml::table& table, operation* ret, problem_list& problems) {
  const kind* const of = settings::read_kind(all_kinds(), table, "the operation", problems);
  if (of != nullptr) {
    ret->kind = of->id;
    check_required(table, keys_of(*of), problems);
  } else {
    check_required(table, {find_key("id")}, problems);
  }
  if (of != nullptr && of->target == nullptr) {
    ret->source.clear();
    ret->device.clear();
  }
  const bad_keys bad = read_keys(table, of, *ret, problems);
  check_device(table, problems);
  if (!table.contains("timeout")) {
    ret->timeout_ms = std::min(ret->timeout_ms, ret->interval_ms);
  }
  check_together(table, *ret, bad, problems);
  return table.contains("id") && !bad.contains("id");
}

}  // namespace ot::qmond
