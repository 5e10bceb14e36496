// "export", "apply", "diff": the configuration as a file. A file is read whole and checked whole
// before the service is asked for anything, and what differs is one commit.
#include <algorithm>
#include <iostream>
#include <map>

#include "tools/json.h"
#include "tools/trackctl/apply.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/member_places.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/terminal.h"

namespace ot::trackctl {
namespace {

struct file_options {
  std::string path;
  bool prune = false;
  bool dry_run = false;
  bool json = false;
};

void print_changes(const file_changes& plan, bool dry_run) {
  for (const std::string& line : plan.lines) {
    std::cout << shown_text(line) << '\n';
  }
  const char* be = dry_run ? "to be " : "";
  std::cout << plan.made << ' ' << be << "made, " << plan.changed << ' ' << be << "changed, "
            << plan.deleted << ' ' << be << "deleted\n";
}

// {"dry_run", "made", "changed", "deleted", "changes": [the lines]}
void print_json(const file_changes& plan, bool dry_run) {
  const nlohmann::ordered_json all{{"dry_run", dry_run},
                                   {"made", plan.made},
                                   {"changed", plan.changed},
                                   {"deleted", plan.deleted},
                                   {"changes", plan.lines}};
  std::cout << json_text(all);
}

// True when something differs.
bool apply_file(const file_options& options) {
  const file_content content = read_track_file(options.path);
  refuse_errors(content.errors);
  const auto [plan, warnings] = apply_tracks(
      content.tracks,
      {.what = "applying " + options.path, .prune = options.prune, .dry_run = options.dry_run});
  for (const std::string& warning : warnings) {
    std::cerr << "trackctl: " << warning << '\n';
  }
  if (options.json) {
    print_json(plan, options.dry_run);
  } else if (!plan.changes.empty()) {
    print_changes(plan, options.dry_run);
  }
  return !plan.changes.empty();
}

configured_tracks chosen_tracks(configured_tracks all, const arguments& names) {
  if (names.empty()) {
    return all;
  }
  configured_tracks chosen;
  for (const std::string& name : names) {
    check_track_name(name);
    const auto found = all.find(name);
    if (found == all.end()) {
      throw failure(exit_refused,
                    "there is no track \"" + name + "\"; `trackctl show` lists those there are");
    }
    chosen.insert(*found);
  }
  return chosen;
}

// How many tracks follow each object that only one should.
std::map<std::string, int> count_followers(const configured_tracks& all) {
  std::map<std::string, int> followers;
  for (const auto& [name, items] : all) {
    ++followers[find_exclusive_object(items).text];
  }
  return followers;
}

}  // namespace

int run_export(const arguments& args) {
  command_line app{"Print the configuration, a track a line, as a file that apply reads.",
                   "trackctl export"};
  app.footer("Example: trackctl export > tracks.conf");
  arguments names;
  bool json = false;
  app.add_option("NAME", names, "only these tracks");
  app.add_flag("--json", json, "an array of objects with name and line, null where there is none");
  parse_arguments(app, args);

  const configured_tracks all = read_configuration();
  const auto places = read_member_places();
  const auto followers = count_followers(all);
  auto lines = nlohmann::ordered_json::array();
  for (const auto& [name, items] : chosen_tracks(all, names)) {
    const auto of_track = places.find(name);
    const member_order order = [&](std::vector<std::string>& members) {
      put_in_order(of_track == places.end() ? member_places{} : of_track->second, members);
    };
    const auto line =
        write_track_line(name, items, followers.at(find_exclusive_object(items).text) > 1, order);
    if (json) {
      lines.push_back({{"name", name}, {"line", line ? nlohmann::ordered_json(*line) : nullptr}});
    } else if (line) {
      std::cout << *line << '\n';
    } else {
      std::cout << "# " << name << ": it has items that no words make\n";
      std::cerr << "trackctl: warning: track \"" << name
                << "\" has items that no words make, and is only a comment in the file\n";
    }
  }
  if (json) {
    std::cout << json_text(lines);
  }
  return exit_done;
}

int run_apply(const arguments& args) {
  command_line app{
      "Make the tracks what a file says, all of it or nothing, and print what differed.",
      "trackctl apply"};
  app.footer(
      "A line is what `trackctl set` takes: uplink interface eth0 --delay-up 5\n"
      "\"include PATH\" reads another file, or the *.conf files of a folder; # begins a "
      "comment.\nExample: trackctl apply tracks.conf --prune");
  file_options options;
  app.add_option("FILE", options.path, "the file; - for standard input").required();
  app.add_flag("--prune", options.prune, "delete the tracks that the file does not name");
  app.add_flag("--dry-run", options.dry_run, "check and print, change nothing");
  app.add_flag("--json", options.json, "print an object: how many, and each change");
  parse_arguments(app, args);
  apply_file(options);
  return exit_done;
}

int run_diff(const arguments& args) {
  command_line app{"Compare the configuration with a file: what `apply --prune` would change.",
                   "trackctl diff"};
  app.footer(
      "Exit status: 0 the same, 1 different, 2 not known, 3 the service is not running.\n"
      "Example: trackctl diff tracks.conf");
  file_options options{.path = {}, .prune = true, .dry_run = true, .json = false};
  app.add_option("FILE", options.path, "the file; - for standard input").required();
  app.add_flag("--json", options.json, "print an object: how many, and each change");
  parse_arguments(app, args);
  try {
    const bool differs = apply_file(options);
    check_output();
    return differs ? exit_different : exit_done;
  } catch (const failure& reason) {
    // What went wrong is no difference.
    throw failure(reason.status == exit_refused ? exit_usage : reason.status, reason.what());
  }
}

}  // namespace ot::trackctl
