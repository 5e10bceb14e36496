// What may stand at a place of the command line, for the shells' completion: they hand over the
// words behind "trackctl", the last of them as far as it is typed, and get one candidate a line;
// "@files" where a file's name stands. Nothing is printed about what is wrong: the command says so.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>

#include "platform/common/root_path.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackpolicy/config.h"

namespace ot::trackctl {
namespace {

using words = std::vector<std::string>;

// None when the service does not run, or is not ours to ask.
words names_of_tracks() {
  words names;
  try {
    for (const auto& [name, items] : read_tracks()) {
      names.push_back(name);
    }
  } catch (const failure&) {
    names.clear();
  }
  return names;
}

words names_and_not() {
  words names = names_of_tracks();
  names.emplace_back("not");
  return names;
}

words assignments() {
  words all;
  for (const std::string& name : names_of_tracks()) {
    all.push_back(name + "=up");
    all.push_back(name + "=down");
  }
  return all;
}

// The devices of this kind, "" for all, as the kernel describes them.
words devices(const std::string& kind) {
  words names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net", ignored)) {
    std::ifstream stream(entry.path() / "uevent");
    bool wanted = kind.empty();
    for (std::string line; !wanted && std::getline(stream, line);) {
      wanted = line == "DEVTYPE=" + kind;
    }
    if (wanted) {
      names.push_back(entry.path().filename());
    }
  }
  return names;
}

// The ids of the probe service's operations.
words operations() {
  words ids;
  std::ifstream stream(root_path("/etc/object_tracking/probes.toml"));
  for (std::string line; std::getline(stream, line);) {
    line.erase(std::remove_if(line.begin(), line.end(), [](char c) { return c == ' '; }),
               line.end());
    if (line.starts_with("id=")) {
      const std::size_t end = line.find_first_not_of("0123456789", 3);
      ids.push_back(line.substr(3, end == std::string::npos ? end : end - 3));
    }
  }
  return ids;
}

words kinds() {
  words all;
  for (const track_kind& kind : track_kinds()) {
    all.emplace_back(kind.word);
  }
  return all;
}

words words_of_commands() {
  words all;
  for (const command& row : commands()) {
    all.emplace_back(row.word);
  }
  return all;
}

words first_words() {
  words all = words_of_commands();
  all.insert(all.end(), {"help", "--help", "--version"});
  return all;
}

using source = words (*)();

words anything() {  // a value that nobody can guess
  return {};
}
words files() {
  return {"@files"};
}
words interfaces() {
  return devices("");
}
words vrfs() {
  return devices("vrf");
}
words states() {
  return {"up", "down"};
}
words all_states() {
  return {"up", "down", "unknown"};
}
words policy_commands() {
  return {"list", "test", "check"};
}
words policies() {
  words names;
  const std::string folder = root_path(trackpolicy::policies_folder);
  for (const trackpolicy::policy& each : trackpolicy::read_policies(folder).policies) {
    names.push_back(each.name);
  }
  return names;
}
words flags() {
  return {"detail", "error", "notification"};
}
words switches() {
  return {"on", "off"};
}

// An option of a command, of `set` with the kind behind a blank, of `policy` with its command;
// without a source it has no value.
struct option_row {
  std::string_view command;
  std::string_view option;
  source value = nullptr;
};
constexpr option_row options[] = {
    {"set", "--delay-up", anything},
    {"set", "--delay-down", anything},
    {"set route", "--vrf", vrfs},
    {"set bfd", "--interface", interfaces},
    {"set bfd", "--rate", anything},
    {"set bfd", "--debounce", anything},
    {"set bfd", "--shared"},
    {"set weight", "--up", anything},
    {"set weight", "--down", anything},
    {"set percentage", "--up", anything},
    {"set percentage", "--down", anything},
    {"delay", "--up", anything},
    {"delay", "--down", anything},
    {"export", "--json"},
    {"apply", "--prune"},
    {"apply", "--dry-run"},
    {"apply", "--json"},
    {"diff", "--json"},
    {"explain", "--json"},
    {"what-if", "--file", files},
    {"what-if", "--prune"},
    {"what-if", "--json"},
    {"show", "--detail"},
    {"show", "--json"},
    {"state", "--wait", states},
    {"state", "--timeout", anything},
    {"state", "--json"},
    {"history", "--since", anything},
    {"history", "--json"},
    {"events", "--track", names_of_tracks},
    {"events", "--state", states},
    {"events", "--json"},
    {"engine", "--json"},
    {"metrics", "--prometheus"},
    {"metrics", "--output", files},
    {"metrics", "--http"},
    {"policy list", "--json"},
    {"policy check", "--files-only"},
    {"debug", "--json"},
};

// What stands behind the command, place by place; of `set` behind the kind. The last one repeats
// where `many` says so.
struct place_row {
  std::string_view command;
  source places[2];
  bool many = false;
};
constexpr place_row places[] = {
    {"set", {names_of_tracks, kinds}},
    {"set interface", {interfaces}},
    {"set probe", {operations}},
    {"set and", {names_and_not}, true},
    {"set or", {names_and_not}, true},
    {"set weight", {names_of_tracks}, true},
    {"set percentage", {names_of_tracks}, true},
    {"delay", {names_of_tracks}},
    {"delete", {names_of_tracks}},
    {"export", {names_of_tracks}, true},
    {"apply", {files}},
    {"diff", {files}},
    {"show", {names_of_tracks}},
    {"state", {names_of_tracks}, true},
    {"history", {names_of_tracks}},
    {"watch", {names_of_tracks}, true},
    {"explain", {names_of_tracks}},
    {"what-if", {assignments}, true},
    {"policy", {policy_commands}},
    {"policy test", {policies, all_states}},
    {"policy check", {files}},
    {"debug", {flags, switches}},
    {"help", {words_of_commands}},
    {"help set", {kinds}},
    {"help policy", {policy_commands}},
};

bool belongs(std::string_view row, std::string_view command) {
  return command == row || (command.starts_with(row) && command[row.size()] == ' ');
}

const option_row* find_option(std::string_view command, std::string_view word) {
  const auto* const found = std::find_if(
      std::begin(options), std::end(options),
      [&](const option_row& row) { return row.option == word && belongs(row.command, command); });
  return found == std::end(options) ? nullptr : found;
}

// How many of the words stand at places: neither options nor their values.
std::size_t count_places(std::string_view command, const words& typed) {
  std::size_t count = 0;
  for (std::size_t index = 0; index < typed.size(); ++index) {
    const option_row* const option = find_option(command, typed[index]);
    if (option != nullptr && option->value != nullptr) {
      ++index;
    } else if (option == nullptr) {
      ++count;
    }
  }
  return count;
}

words at_place(std::string_view command, std::size_t place) {
  const auto* const row =
      std::find_if(std::begin(places), std::end(places),
                   [command](const place_row& each) { return each.command == command; });
  if (row == std::end(places)) {
    return {};
  }
  const bool two = row->places[1] != nullptr;
  const std::size_t last = two ? 1 : 0;
  return place <= last ? row->places[place]() : row->many ? row->places[last]() : words{};
}

// `typed`: the words before the one that is asked for.
words candidates(words typed) {
  if (typed.empty()) {
    return first_words();
  }
  std::string command = typed[0];
  typed.erase(typed.begin());
  if (command == "set" && count_places(command, typed) >= 2) {
    command += ' ' + typed[1];
    typed.erase(typed.begin(), typed.begin() + 2);
  }
  if ((command == "policy" || command == "help") && !typed.empty()) {
    command += ' ' + typed[0];
    typed.erase(typed.begin());
  }
  const option_row* const option = typed.empty() ? nullptr : find_option(command, typed.back());
  if (option != nullptr && option->value != nullptr) {
    return option->value();
  }
  words found = at_place(command, count_places(command, typed));
  for (const option_row& row : options) {
    if (belongs(row.command, command) &&
        std::find(typed.begin(), typed.end(), row.option) == typed.end()) {
      found.emplace_back(row.option);
    }
  }
  return found;
}

}  // namespace

int run_complete(const arguments& args) {
  words typed = args;
  const std::string begun = typed.empty() ? "" : typed.back();
  if (!typed.empty()) {
    typed.pop_back();
  }
  words found = candidates(typed);
  std::sort(found.begin(), found.end());
  for (const std::string& word : found) {
    if (word.starts_with(begun) || (word == "@files" && !begun.starts_with('-'))) {
      std::cout << word << '\n';
    }
  }
  return exit_done;
}

}  // namespace ot::trackctl
