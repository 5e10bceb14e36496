// Reading the configuration: the outline of the file, the keys that all operations have, what must
// be there, and what two keys say about each other. The keys of one kind are in its row; single
// values are read by values.cpp.
#include "tools/qmond/config.h"

#include <net/if.h>
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <tuple>

#include "platform/linux/probes/qmon/table_layout.h"
#include "tools/qmond/kinds/kinds.h"
#include "tools/qmond/values.h"

namespace ot::qmond {
namespace {

constexpr const char* defaults_key = "defaults";
constexpr const char* operations_key = "operation";

// What a track can name.
constexpr std::uint32_t id_max = 2147483647;
constexpr std::uint32_t interval_min = 100;
constexpr std::uint32_t interval_max = 24 * 3600 * 1000;
constexpr std::uint32_t timeout_min = 10;
constexpr std::uint32_t count_max = 100;

// The problems found so far.
class problem_list {
 public:
  void add(const toml::source_region& place, std::string text) {
    found_.push_back(
        {.line = place.begin.line, .column = place.begin.column, .text = std::move(text)});
  }
  [[nodiscard]] std::size_t count() const noexcept { return found_.size(); }
  // By place in the file.
  [[nodiscard]] std::vector<problem> sorted() const {
    std::vector<problem> by_place = found_;
    std::stable_sort(by_place.begin(), by_place.end(), [](const problem& a, const problem& b) {
      return std::tie(a.line, a.column) < std::tie(b.line, b.column);
    });
    return by_place;
  }

 private:
  std::vector<problem> found_;
};

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

void take_key(const key_row& row, const toml::node& node, operation& to, problem_list& problems) {
  try {
    row.take(node, to);
  } catch (const value_error& error) {
    problems.add(node.source(), std::string(row.name) + ": " + error.what());
  }
}

const kind* read_kind(const toml::table& table, problem_list& problems) {
  const toml::node* const node = table.get("kind");
  if (node == nullptr) {
    problems.add(table.source(), "the operation has no \"kind\"; there are " + kind_words());
    return nullptr;
  }
  const toml::value<std::string>* const word = node->as_string();
  const kind* const found = word == nullptr ? nullptr : find_kind(word->get());
  if (found == nullptr) {
    problems.add(node->source(), "kind: must be one of " + kind_words());
  }
  return found;
}

void read_keys(const toml::table& table, const kind& of, operation& to, problem_list& problems) {
  const auto keys = keys_of(of);
  for (const auto& [key, node] : table) {
    if (const key_row* const row = find_key(keys, key.str())) {
      take_key(*row, node, to, problems);
    } else if (find_key(key.str()) == nullptr) {
      problems.add(key.source(), "there is no key \"" + std::string(key.str()) + "\"");
    } else {
      problems.add(key.source(), "an operation of kind " + std::string(of.word) + " has no \"" +
                                     std::string(key.str()) + "\"");
    }
  }
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

// The keys of [defaults]: those that operations of several kinds have.
void read_common_keys(const toml::table& table, operation* ret, problem_list& problems) {
  for (const auto& [key, node] : table) {
    const key_row* const row = find_key(key.str());
    if (row == nullptr || (row->use & key_common) == 0) {
      problems.add(key.source(), "\"" + std::string(key.str()) + "\" cannot stand in [defaults]");
    } else {
      take_key(*row, node, *ret, problems);
    }
  }
  check_device(table, problems);
}

// An [[operation]]; `ret` comes with the defaults. False when it has no usable id.
bool read_operation(const toml::table& table, operation* ret, problem_list& problems) {
  const kind* const of = read_kind(table, problems);
  if (of == nullptr) {
    if (!table.contains("id")) {
      problems.add(table.source(), "the operation has no \"id\"");
    }
    return false;
  }
  ret->kind = of->id;
  if (of->target == nullptr) {
    ret->source.clear();
    ret->device.clear();
  }
  const std::size_t before = problems.count();
  read_keys(table, *of, *ret, problems);
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

class config_reader {
 public:
  configuration read(const toml::table& file) {
    for (const auto& [key, node] : file) {
      if (key != defaults_key && key != operations_key) {
        problems_.add(key.source(), "\"" + std::string(key.str()) +
                                        "\" is not known here; there are [defaults] and "
                                        "[[operation]]");
      }
    }
    read_defaults(file.get(defaults_key));
    read_operations(file.get(operations_key));
    return {.operations = std::move(operations_), .problems = problems_.sorted()};
  }

 private:
  void read_defaults(const toml::node* node) {
    if (node == nullptr) {
      return;
    }
    if (const toml::table* const table = node->as_table()) {
      read_common_keys(*table, &defaults_, problems_);
    } else {
      problems_.add(node->source(), "\"defaults\" must be a table: [defaults]");
    }
  }

  void read_operations(const toml::node* node) {
    if (node == nullptr) {
      return;
    }
    const toml::array* const list = node->as_array();
    if (list == nullptr) {
      problems_.add(node->source(), "operations must be a list of tables: [[operation]]");
      return;
    }
    for (const toml::node& element : *list) {
      if (const toml::table* const table = element.as_table()) {
        read_one(*table);
      } else {
        problems_.add(element.source(), "an operation must be a table: [[operation]]");
      }
    }
  }

  void read_one(const toml::table& table) {
    const std::size_t before = problems_.count();
    operation found = defaults_;
    if (!read_operation(table, &found, problems_)) {
      return;  // without an id
    }
    const auto [place, fresh] = lines_.emplace(found.id, table.source().begin.line);
    if (!fresh) {
      problems_.add(table.get("id")->source(), "id " + std::to_string(found.id) +
                                                   " is that of the operation in line " +
                                                   std::to_string(place->second));
    } else if (lines_.size() > operations_max) {
      problems_.add(table.source(),
                    "there are more than " + std::to_string(operations_max) + " operations");
    }
    if (problems_.count() == before) {
      operations_.push_back(std::move(found));
    }
  }

  problem_list problems_;
  operation defaults_;
  std::map<std::uint32_t, std::uint32_t> lines_;  // by id
  std::vector<operation> operations_;
};

}  // namespace

configuration parse_config(std::string_view text) {
  try {
    return config_reader().read(toml::parse(text));
  } catch (const toml::parse_error& error) {
    problem_list problems;
    problems.add(error.source(), std::string(error.description()));
    return {.operations = {}, .problems = problems.sorted()};
  }
}

configuration read_config(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  // An empty file has no operations; copying nothing would count as a failure.
  const bool empty = file && file.peek() == std::ifstream::traits_type::eof() && !file.bad();
  if (!empty && (!file || !(text << file.rdbuf()))) {
    const std::string why = std::generic_category().message(errno);
    return {.operations = {}, .problems = {{.line = 0, .column = 0, .text = why}}};
  }
  return parse_config(text.str());
}

std::string problem_text(const std::string& path, const problem& what) {
  if (what.line == 0) {
    return path + ": " + what.text;
  }
  return path + ':' + std::to_string(what.line) + ':' + std::to_string(what.column) + ": " +
         what.text;
}

}  // namespace ot::qmond
