// Reading the configuration: the outline of the file.
#include "tools/qmond/config.h"

#include <toml++/toml.h>

#include <map>
#include <optional>
#include <utility>

#include "platform/linux/probes/qmon/table_layout.h"
#include "tools/qmond/operation_keys.h"
#include "tools/settings/document.h"
#include "tools/settings/protected_file.h"

namespace ot::qmond {
namespace {

constexpr const char* defaults_key = "defaults";
constexpr const char* operations_key = "operation";

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
  configuration none;
  const std::optional<toml::table> file = settings::parse_document(text, &none.problems);
  return file ? config_reader().read(*file) : none;
}

configuration read_config(const std::string& path) {
  std::string text;
  if (std::string wrong = settings::read_protected_file(path, &text); !wrong.empty()) {
    return {.operations = {}, .problems = {{.line = 0, .column = 0, .text = std::move(wrong)}}};
  }
  return parse_config(text);
}

}  // namespace ot::qmond
