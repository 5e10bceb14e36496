// "policy": what trackpolicy is told to do, and how it stands. "check" and "test" read the files
// and need no running program; "list" asks trackpolicy over its socket.
#include <algorithm>
#include <array>
#include <iostream>

#include "platform/common/root_path.h"
#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/policy_list.h"
#include "tools/trackctl/times.h"
#include "tools/trackctl/track.h"
#include "tools/trackpolicy/config.h"
#include "tools/trackpolicy/foundations.h"
#include "tools/trackpolicy/kernel/kernel_access.h"
#include "tools/trackpolicy/kernel/link_keeper.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackctl {
namespace {

std::string count_text(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " policy" : " policies");
}

// Whether no link policy would set down what its track depends on, as far as the service can be
// asked; what is wrong has been said.
bool links_are_safe(const std::vector<trackpolicy::policy>& policies) {
  trackpolicy::foundations tracks;
  const bool any = std::any_of(policies.begin(), policies.end(), [](const auto& each) {
    return each.kind == trackpolicy::kind_id::link;
  });
  if (!any) {
    return true;
  }
  try {
    const trackpolicy::probe_interfaces probes = trackpolicy::read_probe_interfaces();
    read_track_records([&](const track_info__& record) { tracks.note(record, probes); });
  } catch (const failure& error) {
    std::cerr << "what tracks depend on was not looked at: " << error.what() << '\n';
    return true;
  }
  // What interfaces lie on; without that only the tracks' own ones are known.
  trackpolicy::link_table links;
  trackpolicy::kernel_access kernel;
  if (kernel.open_requests() == 0) {
    (void)kernel.read_links(links);
  }
  bool safe = true;
  for (const trackpolicy::policy& each : policies) {
    if (each.kind == trackpolicy::kind_id::link) {
      const std::string reason =
          trackpolicy::reason_against(each.track, each.interface, links, tracks);
      safe = safe && reason.empty();
      std::cerr << (reason.empty() ? "" : each.name + ": " + reason + '\n');
    }
  }
  return safe;
}

int run_check(const arguments& args) {
  command_line app{"Say every error of a file of policies, or of a folder of them.",
                   "trackctl policy check"};
  std::string path = root_path(trackpolicy::policies_folder);
  app.add_option("PATH", path, "a file, or a folder with *.toml; none: " + path);
  bool files_only = false;
  app.add_flag("--files-only", files_only, "do not ask the service what tracks depend on");
  parse_arguments(app, args);
  const trackpolicy::configuration config = trackpolicy::read_policies(path);
  for (const std::string& problem : config.problems) {
    std::cerr << problem << '\n';
  }
  if (!config.problems.empty() || (!files_only && !links_are_safe(config.policies))) {
    return exit_refused;
  }
  std::cout << path << ": " << count_text(config.policies.size()) << ", no errors\n";
  return exit_done;
}

int run_test(const arguments& args) {
  command_line app{"Say what a policy would do when its track becomes that; nothing is done.",
                   "trackctl policy test"};
  std::string name;
  std::string word;
  app.add_option("NAME", name, "the policy").required();
  app.add_option("STATE", word, "up, down or unknown").required().one_of({"up", "down", "unknown"});
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

// What the policy does, what waits, its penalty, and the problem.
std::string doing_text(const nlohmann::json& policy, moment now) {
  std::string text = policy.at("doing");
  const auto until = [&policy, now](const char* member) {
    return " until " + text_time(now + milliseconds(policy.at(member).get<std::int64_t>()));
  };
  if (const auto held = policy.value("held", nlohmann::json()); !held.is_null()) {
    text += "; " + held.get<std::string>() + " is held" + until("held_ms");
  }
  const auto penalty = policy.value("penalty", nlohmann::json());
  if (!penalty.is_null() && penalty != 0) {
    text += "; penalty " + std::to_string(penalty.get<std::int64_t>());
    text += policy.at("suppressed_ms") == 0 ? "" : ", suppressed" + until("suppressed_ms");
  }
  const std::string problem = policy.at("problem");
  return problem.empty() ? text : text + "; " + problem;
}

void print_list(const nlohmann::json& policies) {
  constexpr std::array headings{"POLICY", "KIND", "TRACK", "STATE", "RUNS", "FAILED", "DOING"};
  const moment now = std::chrono::system_clock::now();
  std::vector<std::vector<std::string>> rows{{headings.begin(), headings.end()}};
  for (const nlohmann::json& each : policies) {
    const bool known = each.at("service") == "reachable";
    rows.push_back({each.at("policy"), each.at("kind"), each.at("track"),
                    known ? each.at("state").get<std::string>() : "no service",
                    std::to_string(each.at("runs").get<std::uint64_t>()),
                    std::to_string(each.at("failures").get<std::uint64_t>()),
                    doing_text(each, now)});
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
  command_line app{"Show every policy of the running trackpolicy, and what it does.",
                   "trackctl policy list"};
  bool json = false;
  app.add_flag("--json", json, "for programs: a list of objects");
  parse_arguments(app, args);
  const std::string text = read_policy_list();
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
    "       trackctl policy check [--files-only] [FILE|FOLDER]\n"
    "                                                   every error of the policies' files\n";

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
