// The commands of trackctl. Each has a file of its own and one row in commands.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ot::trackctl {

using arguments = std::vector<std::string>;

struct command {
  const char* word;
  const char* usage;  // what follows "trackctl"
  const char* summary;
  // Runs with what stands behind the word and returns the exit status. Throws failure, or
  // help_shown after --help.
  int (*run)(const arguments& args);
};

struct help_shown {};

std::span<const command> commands() noexcept;
const command* find_command(std::string_view word) noexcept;

// Parses `args` with `app`. Throws failure(exit_usage) for a bad command line and help_shown after
// having printed the help. Options may stand anywhere; "--" ends them.
void parse_arguments(CLI::App& app, const arguments& args);

int run_set(const arguments& args);
int run_delay(const arguments& args);
int run_delete(const arguments& args);
int run_show(const arguments& args);
int run_state(const arguments& args);
int run_events(const arguments& args);
int run_engine(const arguments& args);
int run_debug(const arguments& args);

}  // namespace ot::trackctl
