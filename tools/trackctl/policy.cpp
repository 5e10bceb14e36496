// "policy": what trackpolicy is told to do, and how it stands. "check" and "test" read the files
// and need no running program; "list" asks trackpolicy over its socket.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/common/root_path.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"
#include "tools/trackctl/command.h"
#include "tools/trackpolicy/config.h"
#include "tools/trackpolicy/kinds/kinds.h"
#include "tools/trackpolicy/status_socket.h"

namespace ot::trackctl {
namespace {

std::string count_text(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " policy" : " policies");
}

int run_check(const arguments& args) {
  CLI::App app{"Say every error of a file of policies, or of a folder of them.",
               "trackctl policy check"};
  std::string path = root_path(trackpolicy::policies_folder);
  app.add_option("PATH", path, "a file, or a folder with *.toml; none: " + path);
  parse_arguments(app, args);
  const trackpolicy::configuration config = trackpolicy::read_policies(path);
  for (const std::string& problem : config.problems) {
    std::cerr << problem << '\n';
  }
  if (!config.problems.empty()) {
    return exit_refused;
  }
  std::cout << path << ": " << count_text(config.policies.size()) << ", no errors\n";
  return exit_done;
}

int run_test(const arguments& args) {
  CLI::App app{"Say what a policy would do when its track becomes that; nothing is done.",
               "trackctl policy test"};
  std::string name;
  std::string word;
  app.add_option("NAME", name, "the policy")->required();
  app.add_option("STATE", word, "up, down or unknown")
      ->required()
      ->check(CLI::IsMember({"up", "down", "unknown"}));
  parse_arguments(app, args);
  const std::string folder = root_path(trackpolicy::policies_folder);
  const trackpolicy::configuration config = trackpolicy::read_policies(folder);
  for (const std::string& problem : config.problems) {
    std::cerr << problem << '\n';
  }
  const auto found =
      std::find_if(config.policies.begin(), config.policies.end(),
                   [&](const trackpolicy::policy& each) { return each.name == name; });
  if (found == config.policies.end()) {
    throw failure(exit_refused, "there is no policy \"" + name + "\" without errors in " + folder);
  }
  const auto& states = trackpolicy::state_words;
  const auto state = static_cast<trackpolicy::track_state>(
      std::find(states.begin(), states.end(), word) - states.begin());
  std::cout << name << ": when " << found->track << " becomes " << word << ", it "
            << trackpolicy::kind_of(found->kind).describe(*found, state) << '\n';
  return exit_done;
}

// What trackpolicy says of all policies.
std::string read_list() {
  const std::string path = root_path(trackpolicy::status_socket_path);
  sockaddr_un address{};
  const unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!unix_address(path, &address)) {
    throw failure(exit_refused,
                  path + ": the path is too long for a socket; use a shorter OT_ROOT");
  }
  if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == ENOENT || errno == ECONNREFUSED) {
      throw failure(exit_no_service, "trackpolicy is not running: nobody answers at " + path +
                                         "; start it: `systemctl start trackpolicy`");
    }
    throw failure(exit_refused, path + ": " + std::generic_category().message(errno) +
                                    "; run it as root or as a member of the group object_tracking");
  }
  constexpr timeval patience{.tv_sec = 5, .tv_usec = 0};
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  std::string text;
  std::array<char, 65536> part;
  ssize_t size = 0;
  while ((size = read(socket.get(), part.data(), part.size())) > 0) {
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  if (size < 0 || !text.ends_with("]\n")) {
    throw failure(exit_refused,
                  "trackpolicy does not answer; look at what it is doing: "
                  "`systemctl status trackpolicy`");
  }
  return text;
}

void print_list(const nlohmann::json& policies) {
  constexpr std::array headings{"POLICY", "KIND", "TRACK", "STATE", "RUNS", "FAILED", "DOING"};
  std::vector<std::vector<std::string>> rows{{headings.begin(), headings.end()}};
  for (const nlohmann::json& each : policies) {
    const std::string problem = each.at("problem");
    const bool known = each.at("service") == "reachable";
    rows.push_back({each.at("policy"), each.at("kind"), each.at("track"),
                    known ? each.at("state").get<std::string>() : "no service",
                    std::to_string(each.at("runs").get<std::uint64_t>()),
                    std::to_string(each.at("failures").get<std::uint64_t>()),
                    each.at("doing").get<std::string>() + (problem.empty() ? "" : "; " + problem)});
  }
  std::array<std::size_t, headings.size()> widths{};
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      line.append(i + 1 < row.size() ? widths[i] + 2 - row[i].size() : 0, ' ');
    }
    std::cout << line << '\n';
  }
}

int run_list(const arguments& args) {
  CLI::App app{"Show every policy of the running trackpolicy, and what it does.",
               "trackctl policy list"};
  bool json = false;
  app.add_flag("--json", json, "for programs: a list of objects");
  parse_arguments(app, args);
  const std::string text = read_list();
  if (json) {
    std::cout << text;
  } else {
    print_list(nlohmann::json::parse(text));
  }
  return exit_done;
}

struct policy_command {
  const char* word;
  int (*run)(const arguments& args);
};
constexpr std::array subcommands{policy_command{"list", run_list}, policy_command{"test", run_test},
                                 policy_command{"check", run_check}};

constexpr const char* help =
    "usage: trackctl policy list [--json]               the policies, and what each of them does\n"
    "       trackctl policy test NAME up|down|unknown   what a policy would do; does nothing\n"
    "       trackctl policy check [FILE|FOLDER]         every error of the policies' files\n";

}  // namespace

int run_policy(const arguments& args) {
  const std::string word = args.empty() ? "" : args[0];
  if (word == "--help" || word == "-h") {
    std::cout << help;
    return exit_done;
  }
  const auto* const found =
      std::find_if(subcommands.begin(), subcommands.end(),
                   [&](const policy_command& row) { return row.word == word; });
  if (found == subcommands.end()) {
    throw failure(exit_usage, "policy: list, test or check? `trackctl policy --help` tells more");
  }
  return found->run({args.begin() + 1, args.end()});
}

}  // namespace ot::trackctl
