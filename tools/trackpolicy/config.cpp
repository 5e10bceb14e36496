// Reading the policies: the folder, the outline of each file, and what files say of each other.
#include "tools/trackpolicy/config.h"

#include <sys/stat.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/linux/process/directories.h"
#include "tools/settings/document.h"
#include "tools/trackpolicy/policy_keys.h"

namespace ot::trackpolicy {
namespace {

constexpr const char* defaults_key = "defaults";
constexpr const char* policies_key = "policy";
constexpr const char* in_progress = ".new";  // a file is written to this, and renamed
constexpr std::size_t file_size_max = std::size_t{4} << 20;

class config_reader {
 public:
  void read(const std::string& path, std::string_view text) {
    std::vector<settings::problem> wrong;
    const std::optional<toml::table> file = settings::parse_document(text, &wrong);
    path_ = path;
    problems_ = {};
    defaults_ = {};
    if (file) {
      read_outline(*file);
      wrong = problems_.sorted();
    }
    for (const settings::problem& each : wrong) {
      found_.problems.push_back(settings::problem_text(path, each));
    }
  }

  void add_problem(std::string text) { found_.problems.push_back(std::move(text)); }

  configuration take() { return std::move(found_); }

 private:
  void read_outline(const toml::table& file) {
    for (const auto& [key, node] : file) {
      if (key != defaults_key && key != policies_key) {
        problems_.add(key.source(), "\"" + std::string(key.str()) +
                                        "\" is not known here; there are [defaults] and "
                                        "[[policy]]");
      }
    }
    if (const toml::node* const node = file.get(defaults_key)) {
      if (const toml::table* const table = node->as_table()) {
        read_common_keys(*table, &defaults_, problems_);
      } else {
        problems_.add(node->source(), "\"defaults\" must be a table: [defaults]");
      }
    }
    if (const toml::node* const node = file.get(policies_key)) {
      read_list(*node);
    }
  }

  void read_list(const toml::node& node) {
    const toml::array* const list = node.as_array();
    if (list == nullptr) {
      problems_.add(node.source(), "policies must be a list of tables: [[policy]]");
      return;
    }
    for (const toml::node& element : *list) {
      if (const toml::table* const table = element.as_table()) {
        read_one(*table);
      } else {
        problems_.add(element.source(), "a policy must be a table: [[policy]]");
      }
    }
  }

  void read_one(const toml::table& table) {
    const std::size_t before = problems_.count();
    policy found = defaults_;
    if (!read_policy(table, &found, problems_)) {
      return;  // without a name
    }
    const std::string place = path_ + ':' + std::to_string(table.source().begin.line);
    const auto [first, fresh] = places_.emplace(found.name, place);
    if (!fresh) {
      problems_.add(table.get("name")->source(),
                    "name \"" + found.name + "\" is that of the policy in " + first->second);
    } else if (places_.size() == policies_max + 1) {
      problems_.add(table.source(),
                    "there are more than " + std::to_string(policies_max) + " policies");
    }
    if (found.kind == kind_id::file) {
      check_file(table, found.path, place);
    }
    if (problems_.count() == before) {
      found_.policies.push_back(std::move(found));
    }
  }

  // Each would write over the other's, at once or while its own is not whole yet.
  void check_file(const toml::table& table, const std::string& path, const std::string& place) {
    for (const std::string& like : {path, path + in_progress}) {
      if (const auto other = files_.find(like); other != files_.end()) {
        problems_.add(table.get("path")->source(),
                      "path: the policy in " + other->second + " writes to " + like + " as well");
        return;
      }
    }
    files_.emplace(path, place);
    files_.emplace(path + in_progress, place);
  }

  std::string path_;
  settings::problem_list problems_;
  policy defaults_;
  std::map<std::string, std::string> places_;  // of all files, by name
  std::map<std::string, std::string> files_;   // what policies write to: their places
  configuration found_;
};

void read_file(const std::string& path, config_reader& reader) {
  std::string text;
  std::string wrong;
  if (read_own_file(path, file_size_max, text, wrong) != 0) {
    reader.add_problem(std::move(wrong));
  } else {
    reader.read(path, text);
  }
}

// Who may write to a folder decides which files are in it.
std::string folder_problem(const std::string& path, const struct stat& folder) {
  if (folder.st_uid != 0 && folder.st_uid != geteuid()) {
    return path + ": it belongs to user " + std::to_string(folder.st_uid) +
           "; it must belong to user 0";
  }
  if ((folder.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return path + ": others may write to it; only its owner may (chmod go-w)";
  }
  return {};
}

void read_folder(const std::string& path, config_reader& reader) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with('.') && name.ends_with(".toml")) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    read_file(std::filesystem::path(path) / name, reader);
  }
}

}  // namespace

configuration parse_policies(const std::string& path, std::string_view text) {
  config_reader reader;
  reader.read(path, text);
  return reader.take();
}

configuration read_policies(const std::string& path) {
  config_reader reader;
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    reader.add_problem(place_error(path, errno));
  } else if (!S_ISDIR(status.st_mode)) {
    read_file(path, reader);
  } else if (std::string wrong = folder_problem(path, status); !wrong.empty()) {
    reader.add_problem(std::move(wrong));
  } else {
    try {
      read_folder(path, reader);
    } catch (const std::filesystem::filesystem_error& error) {
      reader.add_problem(place_error(path, error.code().value()));
    }
  }
  return reader.take();
}

}  // namespace ot::trackpolicy
