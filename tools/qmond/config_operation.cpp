// One operation of the configuration file: which keys there are, which kinds have them, what must
// be there, and what two keys say about each other.
#include "tools/qmond/config_operation.h"

#include <net/if.h>

#include <algorithm>
#include <array>
#include <optional>
#include <tuple>

#include "tools/qmond/config_values.h"
#include "tools/qmond/kinds.h"

namespace ot::qmond {
namespace {

// What a track can name.
constexpr std::uint32_t id_max = 2147483647;
constexpr std::uint32_t interval_min = 100;
constexpr std::uint32_t interval_max = 24 * 3600 * 1000;
constexpr std::uint32_t timeout_min = 10;
constexpr std::uint32_t count_max = 100;

constexpr unsigned bit(kind_id kind) noexcept {
  return 1U << static_cast<unsigned>(kind);
}
constexpr unsigned every_kind = ~0U;
constexpr unsigned network_kinds = every_kind & ~bit(kind_id::command);

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

std::vector<std::uint32_t> status_value(const toml::node& node) {
  std::vector<std::uint32_t> codes;
  if (const toml::array* const list = node.as_array()) {
    for (const toml::node& element : *list) {
      codes.push_back(number_value(element, 100, 599));
    }
  } else {
    codes.push_back(number_value(node, 100, 599));
  }
  return codes;
}

std::uint16_t query_type_value(const toml::node& node) {
  constexpr std::array types{std::pair{"A", 1},   std::pair{"NS", 2},   std::pair{"SOA", 6},
                             std::pair{"MX", 15}, std::pair{"TXT", 16}, std::pair{"AAAA", 28}};
  const std::string wanted = text_value(node);
  for (const auto& [name, number] : types) {
    if (wanted == name) {
      return static_cast<std::uint16_t>(number);
    }
  }
  throw value_error("must be A, AAAA, MX, NS, SOA or TXT");
}

std::vector<std::string> argv_value(const toml::node& node) {
  const toml::array* const list = node.as_array();
  if (list == nullptr || list->empty()) {
    throw value_error("must be a list of texts: the program and its arguments");
  }
  std::vector<std::string> argv;
  for (const toml::node& element : *list) {
    argv.push_back(element.is_string() && element.as_string()->get().empty() ? std::string()
                                                                             : text_value(element));
  }
  if (argv.front().front() != '/') {
    throw value_error("the program must be an absolute path; there is no shell and no PATH");
  }
  return argv;
}

std::string command_line(const std::vector<std::string>& argv) {
  std::string line;
  for (const std::string& word : argv) {
    line += line.empty() ? word : ' ' + word;
  }
  return line;
}

void take_target(const toml::node& node, operation& to) {
  to.target = text_value(node);
  const host_port found = kind_of(to.kind).target(to.target);
  to.host = found.host;
  to.port = found.port;
}

void take_command(const toml::node& node, operation& to) {
  to.argv = argv_value(node);
  to.target = command_line(to.argv);
}

struct key_row {
  std::string_view name;
  unsigned kinds;     // that have it
  unsigned required;  // that cannot do without
  bool common;        // may stand in [defaults]
  void (*take)(const toml::node& node, operation& to);
};

constexpr auto interval_key = [](const toml::node& node, operation& to) {
  to.interval_ms = duration_value(node, interval_min, interval_max);
};
constexpr auto timeout_key = [](const toml::node& node, operation& to) {
  to.timeout_ms = duration_value(node, timeout_min, interval_max);
};

constexpr std::array keys{
    key_row{"id", every_kind, every_kind, false,
            [](const toml::node& node, operation& to) { to.id = number_value(node, 1, id_max); }},
    key_row{"kind", every_kind, 0, false, [](const toml::node&, operation&) {}},  // read before
    key_row{"target", network_kinds, network_kinds, false, take_target},
    key_row{"command", bit(kind_id::command), bit(kind_id::command), false, take_command},
    key_row{"interval", every_kind, 0, true, interval_key},
    key_row{"timeout", every_kind, 0, true, timeout_key},
    key_row{
        "rise", every_kind, 0, true,
        [](const toml::node& node, operation& to) { to.rise = number_value(node, 1, count_max); }},
    key_row{
        "fall", every_kind, 0, true,
        [](const toml::node& node, operation& to) { to.fall = number_value(node, 1, count_max); }},
    key_row{"source", network_kinds, 0, true,
            [](const toml::node& node, operation& to) { to.source = source_value(node); }},
    key_row{"interface", network_kinds, 0, true,
            [](const toml::node& node, operation& to) { to.device = device_value(node); }},
    key_row{"vrf", network_kinds, 0, true,
            [](const toml::node& node, operation& to) { to.device = device_value(node); }},
    key_row{"size", bit(kind_id::icmp), 0, true,
            [](const toml::node& node, operation& to) { to.size = number_value(node, 8, 65000); }},
    key_row{"status", bit(kind_id::http), 0, false,
            [](const toml::node& node, operation& to) { to.status = status_value(node); }},
    key_row{"verify", bit(kind_id::http), 0, false,
            [](const toml::node& node, operation& to) { to.verify = truth_value(node); }},
    key_row{"query", bit(kind_id::dns), bit(kind_id::dns), false,
            [](const toml::node& node, operation& to) { to.query = host_value(text_value(node)); }},
    key_row{"type", bit(kind_id::dns), 0, false,
            [](const toml::node& node, operation& to) { to.query_type = query_type_value(node); }},
};

const key_row* find_key(std::string_view name) noexcept {
  const auto* const row =
      std::find_if(keys.begin(), keys.end(), [&](const key_row& k) { return k.name == name; });
  return row == keys.end() ? nullptr : row;
}

void take_value(const key_row& row, const toml::node& node, operation& to, problem_list& problems) {
  try {
    row.take(node, to);
  } catch (const value_error& error) {
    problems.add(node.source(), std::string(row.name) + ": " + error.what());
  }
}

std::optional<kind_id> read_kind(const toml::table& table, problem_list& problems) {
  const toml::node* const node = table.get("kind");
  if (node == nullptr) {
    problems.add(table.source(), "the operation has no \"kind\"; there are " + kind_words());
    return {};
  }
  const toml::value<std::string>* const word = node->as_string();
  const kind* const found = word == nullptr ? nullptr : find_kind(word->get());
  if (found == nullptr) {
    problems.add(node->source(), "kind: must be one of " + kind_words());
    return {};
  }
  return found->id;
}

void read_keys(const toml::table& table, operation& to, problem_list& problems) {
  for (const auto& [key, node] : table) {
    const key_row* const row = find_key(key.str());
    if (row == nullptr) {
      problems.add(key.source(), "there is no key \"" + std::string(key.str()) + "\"");
    } else if ((row->kinds & bit(to.kind)) == 0) {
      problems.add(key.source(), "an operation of kind " + std::string(kind_of(to.kind).word) +
                                     " has no \"" + std::string(key.str()) + "\"");
    } else {
      take_value(*row, node, to, problems);
    }
  }
  for (const key_row& row : keys) {
    if ((row.required & bit(to.kind)) != 0 && !table.contains(row.name)) {
      problems.add(table.source(), "the operation has no \"" + std::string(row.name) + "\"");
    }
  }
}

void check_device(const toml::table& table, problem_list& problems) {
  if (table.contains("interface") && table.contains("vrf")) {
    problems.add(table.get("vrf")->source(), "either \"interface\" or \"vrf\", not both");
  }
}

// What only several keys together can get wrong.
void check_together(const toml::table& table, const operation& one, problem_list& problems) {
  if (one.timeout_ms > one.interval_ms && table.contains("timeout")) {
    problems.add(table.get("timeout")->source(), "timeout: must not be longer than the interval");
  }
  const bool both_known = !one.source.empty() && is_address(one.host);
  if (both_known &&
      (one.source.find(':') == std::string::npos) != (one.host.find(':') == std::string::npos)) {
    const toml::node* const source = table.get("source");
    problems.add(source == nullptr ? table.source() : source->source(),
                 "source: is not of the target's address family");
  }
}

}  // namespace

void problem_list::add(const toml::source_region& place, std::string text) {
  found_.push_back(
      {.line = place.begin.line, .column = place.begin.column, .text = std::move(text)});
}

std::vector<problem> problem_list::sorted() const {
  std::vector<problem> by_place = found_;
  std::stable_sort(by_place.begin(), by_place.end(), [](const problem& a, const problem& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
  });
  return by_place;
}

void read_common_keys(const toml::table& table, operation* ret, problem_list& problems) {
  for (const auto& [key, node] : table) {
    const key_row* const row = find_key(key.str());
    if (row == nullptr || !row->common) {
      problems.add(key.source(), "\"" + std::string(key.str()) + "\" cannot stand in [defaults]");
    } else {
      take_value(*row, node, *ret, problems);
    }
  }
  check_device(table, problems);
}

bool read_operation(const toml::table& table, operation* ret, problem_list& problems) {
  const std::optional<kind_id> kind = read_kind(table, problems);
  if (!kind) {
    if (!table.contains("id")) {
      problems.add(table.source(), "the operation has no \"id\"");
    }
    return false;
  }
  ret->kind = *kind;
  if (*kind == kind_id::command) {
    ret->source.clear();
    ret->device.clear();
  }
  const std::size_t before = problems.count();
  read_keys(table, *ret, problems);
  check_device(table, problems);
  if (!table.contains("timeout")) {
    ret->timeout_ms = std::min(ret->timeout_ms, ret->interval_ms);
  }
  if (problems.count() == before) {
    check_together(table, *ret, problems);
  }
  const toml::node* const id = table.get("id");
  return id != nullptr && id->is_integer();
}

}  // namespace ot::qmond
