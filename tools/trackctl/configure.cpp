// "set", "delay", "delete": the commands that change a track. `set` is declarative: what the track
// is now is compared with what is asked for, and only the difference is sent; the same command
// twice changes nothing the second time.
#include <algorithm>
#include <iostream>
#include <optional>

#include "tools/trackctl/command.h"
#include "tools/trackctl/configuration.h"
#include "tools/trackctl/cycles.h"
#include "tools/trackctl/kinds/kinds.h"
#include "tools/trackctl/names.h"
#include "tools/trackctl/plan.h"
#include "tools/trackctl/track_line.h"

namespace ot::trackctl {
namespace {

void print_help() {
  std::cout << "Make a track exactly what is said: created when it is not there, changed where it "
               "differs.\n\nUsage: trackctl set NAME KIND ... [--delay-up S] [--delay-down S]\n\n"
               "Kinds (`trackctl set NAME KIND --help` tells more):\n";
  for (const track_kind& kind : track_kinds()) {
    std::cout << "  " << kind.word << ' ' << kind.arguments << "\n      follows " << kind.summary
              << "\n      trackctl set " << kind.example << '\n';
  }
}

std::optional<std::uint32_t> delay_of(const char* what, const std::optional<std::string>& text) {
  return text ? std::optional(parse_delay(what, *text)) : std::nullopt;
}

void set_track(const said_track& said) {
  change_configuration("setting track \"" + said.name + "\"", [&said] {
    return plan_set(said.name, read_track(said.name), said.type, said.delays);
  });
}

}  // namespace

int run_set(const arguments& all_args) {
  // "--" lets a name begin with a dash, as it does in the other commands.
  const bool dashed = !all_args.empty() && all_args[0] == "--";
  const arguments args(all_args.begin() + (dashed ? 1 : 0), all_args.end());
  if (!dashed && !args.empty() && (args[0] == "--help" || args[0] == "-h")) {
    print_help();
    throw help_shown{};
  }
  const said_track said = read_track_line(
      args, [](const std::string& track, const track_kind& kind, const command_line& parsed) {
        if (kind.check != nullptr) {
          kind.check(track, parsed);
        }
      });
  for (const std::string& note : said.notes) {
    std::cerr << "trackctl: note: " << note << '\n';
  }
  set_track(said);
  warn_of_cycle(said.name);
  return exit_done;
}

int run_delay(const arguments& args) {
  command_line app{"Change the delays of a track; one that is not given stays as it is.",
                   "trackctl delay"};
  app.footer("Example: trackctl delay uplink --up 10 --down 0");
  std::string track;
  std::optional<std::string> up_text;
  std::optional<std::string> down_text;
  app.add_option("NAME", track, "the track").required();
  app.add_option("--up", up_text,
                 "seconds, or such as 2m, before a change to up is published; 0 at once");
  app.add_option("--down", down_text, "the same for a change to down");
  parse_arguments(app, args);
  if (!up_text && !down_text) {
    throw failure(exit_usage, "delay: give --up, --down or both");
  }

  check_track_name(track);
  const auto up = delay_of("--up", up_text);
  const auto down = delay_of("--down", down_text);
  change_configuration("changing the delays of track \"" + track + "\"",
                       [&] { return plan_delay(track, read_existing_track(track), up, down); });
  return exit_done;
}

int run_delete(const arguments& args) {
  command_line app{"Remove a track.", "trackctl delete"};
  app.footer("Example: trackctl delete uplink");
  std::string track;
  app.add_option("NAME", track, "the track").required();
  parse_arguments(app, args);

  check_track_name(track);
  change_configuration("deleting track \"" + track + "\"",
                       [&] { return plan_delete(track, read_existing_track(track)); });
  return exit_done;
}

}  // namespace ot::trackctl
