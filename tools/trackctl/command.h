// trackctl, the operator's tool.
//
// It configures tracks, shows them and follows them. It runs for one command, in one thread, and
// ends with an exit status that scripts rely on. It speaks to the ledger (configuration, state
// items, operational records, trace flags), to the event publisher, and for `policy` to
// trackpolicy, and to nothing else: it opens no store and knows nothing of interfaces, routes or
// sessions but what the service reports.
//
//   main.cpp           finds the command and turns what it throws into an exit status
//   commands.cpp       the table of commands
//   command_line.h     what a command takes, parsed
//   configure.cpp      set, delay, delete: present items -> names.h and kinds/ check what was typed
//                      -> plan.h works out the difference -> configuration.h commits it
//   track_line.h       a track in words: what `set` reads, a line of a file, and back
//   configuration_file.cpp
//                      export, apply, diff: track_file.h reads the file, file_changes.h compares it
//                      with what is configured, apply.h makes it so
//   explain.cpp        explain: explain/ reads what there is, and says why a track is what it is
//   what_if.cpp        what-if: what_if/question.h makes the question of what is there and what is
//                      assumed, what_if/program.h has it answered, what_if/report.h prints it
//   show.cpp, state.h  show, state: track.h reads the records and puts them into JSON
//   history.h          what has changed
//   watch.cpp          watch: runs tools/trackctl_watch/, which draws what live_tracks.h keeps
//                      fresh and live_table.h lays out
//   engine.h, debug.cpp, events.h
//                      what the service is connected to; its trace flags; its events
//   metrics.cpp        metrics: metrics/ reads and writes what is measured
//   overview.h         tracks as people read them on a terminal
//   complete.cpp       what a shell's completion asks for
//   times.h            times and durations, as all of them write and read them
//   json_text.h        JSON, as all of them print it
//   policy.cpp         what trackpolicy does: its files and its socket
//   kinds/             one file a kind of track, with its row
//
// A command reads what is there, checks everything before it changes anything, and says what is
// wrong, where, and what would be right: it throws `failure`, which `main` prints. Connections are
// owned by the functions that open them. A command of your own: a `run` function, declared below,
// its row in commands.cpp, and its words in complete.cpp.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/program.h"
#include "tools/trackctl/command_line.h"

namespace ot::trackctl {

enum exit_status : int {
  exit_done = 0,
  exit_refused = 1,  // refused or failed; the reason is on standard error
  exit_usage = 2,    // the command line or the file is wrong; nothing was changed
  exit_no_service = 3,
  exit_different = 1,  // "diff" only, which ends with 2 when it fails
  exit_down = 10,      // "state" only
  exit_unknown = 11,
  exit_timeout = 12,  // "state --wait" only
};

// Thrown by whatever cannot go on, with an exit_status.
using failure = tool_failure;

// One of a service that runs and has not answered in time.
struct unanswered : failure {
  using failure::failure;
};
// One for lack of memory, here or in the service.
struct memory_lacking : failure {
  using failure::failure;
};

// The text of a status code with its number and, where one is known, what would be right.
std::string code_text(int code);

// Throws for a platform status code: exit_no_service when the service is not running, else
// exit_refused. `what` says what was tried, for example "reading the configuration".
[[noreturn]] void fail_with_code(const std::string& what, int code);

// Throws as above unless `code` is 0.
void check_code(const std::string& what, int code);

// Throws failure(exit_usage) with every line when there are errors in what is to be configured, or
// with the first of very many.
void refuse_errors(const std::vector<std::string>& errors);

struct command {
  const char* word;
  const char* usage;  // what follows "trackctl"
  const char* summary;
  int (*run)(const arguments& args);
};

// All commands, in the order of the help; and the one of that word, or null.
std::span<const command> commands() noexcept;
const command* find_command(std::string_view word) noexcept;

// Prints what may stand in place of the last of the words behind "trackctl", for a shell's
// completion; never throws for what is typed.
int run_complete(const arguments& words);

// The commands. Each runs with what stands behind its word and returns the exit status; throws
// failure, or help_shown after --help.
int run_set(const arguments& args);
int run_delay(const arguments& args);
int run_delete(const arguments& args);
int run_show(const arguments& args);
int run_state(const arguments& args);
int run_history(const arguments& args);
int run_watch(const arguments& args);
int run_events(const arguments& args);
int run_engine(const arguments& args);
int run_metrics(const arguments& args);
int run_debug(const arguments& args);
int run_export(const arguments& args);
int run_apply(const arguments& args);
int run_diff(const arguments& args);
int run_what_if(const arguments& args);
int run_explain(const arguments& args);
int run_policy(const arguments& args);

}  // namespace ot::trackctl
