// "what-if": what would become of the tracks. Only reads the service; the answer is computed by a
// program of its own.
#include <iostream>

#include "tools/json.h"
#include "tools/trackctl/command.h"
#include "tools/trackctl/file_changes.h"
#include "tools/trackctl/json_text.h"
#include "tools/trackctl/states.h"
#include "tools/trackctl/what_if/program.h"
#include "tools/trackctl/what_if/question.h"
#include "tools/trackctl/what_if/report.h"

namespace ot::trackctl {
namespace {

struct what_if_options {
  arguments words;
  std::string file;
  bool prune = false;
  bool json = false;
};

what_if_report find_out(const what_if_options& options) {
  what_if_report report{.assumptions = read_assumptions(options.words), .found = {}, .unknown = {}};
  file_content content;
  if (!options.file.empty()) {
    content = read_track_file(options.file);
    refuse_errors(content.errors);
  }
  configured_tracks present = read_configuration();
  const configured_tracks after = configuration_after(present, content.tracks, options.prune);
  refuse_errors(find_conflicts(after, content.tracks));
  check_assumptions(report.assumptions, after);
  report.unknown = find_unknown_objects(present, after, report.assumptions);
  let_stand_alone(report.assumptions, present);
  let_stand_alone(report.assumptions, content.tracks);
  report.found = ask_what_if({.items = items_of(present, read_member_places()),
                              .tracks = read_states(),
                              .changes = plan_file(present, content.tracks, options.prune).changes,
                              .assumptions = report.assumptions});
  join_births(report.found);
  if (!report.found.refusal.empty()) {
    throw failure(exit_refused, "the service would refuse this: " + report.found.refusal);
  }
  return report;
}

}  // namespace

int run_what_if(const arguments& args) {
  command_line app{
      "Tell what would become of the tracks, and when, if these went up or down, or if a file were "
      "applied. Nothing is changed.",
      "trackctl what-if"};
  app.footer(
      "NAME=down assumes it of what the track follows, so other tracks on the same object go "
      "along; "
      "a list that is assumed to be up or down no longer looks at its members.\n"
      "Example: trackctl what-if uplink=down provider=up");
  what_if_options options;
  app.add_option("ASSUMPTION", options.words, "NAME=up or NAME=down, of a track");
  app.add_option("--file", options.file, "as if this file were applied; - for standard input");
  app.add_flag("--prune", options.prune, "with --file: the tracks it does not name are deleted");
  app.add_flag("--json", options.json, "for programs");
  parse_arguments(app, args);
  if (options.words.empty() && options.file.empty()) {
    throw failure(exit_usage, "what should be assumed? Give NAME=up, NAME=down or --file FILE");
  }
  if (options.prune && options.file.empty()) {
    throw failure(exit_usage, "--prune needs --file");
  }
  const what_if_report report = find_out(options);
  if (options.json) {
    std::cout << json_text(what_if_json(report));
  } else {
    std::cout << what_if_text(report);
  }
  return exit_done;
}

}  // namespace ot::trackctl
