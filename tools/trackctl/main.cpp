// Finds the command and turns what it throws into an exit status.
#include <algorithm>
#include <iostream>
#include <numeric>
#include <vector>

#include "tools/trackctl/command.h"
#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl {
namespace {

void print_help() {
  std::cout << "trackctl: configure object tracks, look at them, follow them\n\n";
  for (const command& row : commands()) {
    std::cout << "  trackctl " << row.usage << "\n      " << row.summary << '\n';
  }
  std::cout << "\n`trackctl help COMMAND` (or `trackctl COMMAND --help`) tells more.\n"
               "Exit status: 0 done, 1 refused or failed, 2 usage, 3 the service is not running.\n";
}

// How many characters have to be changed to make one word of the other.
std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), 0U);
  for (const char letter : one) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t changed = diagonal + (letter == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, changed});
    }
  }
  return row.back();
}

[[noreturn]] void refuse_command(const std::string& word) {
  const auto all = commands();
  const auto nearest =
      std::min_element(all.begin(), all.end(), [&word](const command& one, const command& other) {
        return distance(word, one.word) < distance(word, other.word);
      });
  const bool near = distance(word, nearest->word) <= 2;
  throw failure(exit_usage, "there is no command \"" + word + "\"; " +
                                (near ? "is it \"" + std::string(nearest->word) + "\"? " : "") +
                                "`trackctl --help` lists them");
}

int run_command(const std::string& word, const arguments& args) {
  const command* const found = find_command(word);
  if (found == nullptr) {
    refuse_command(word);
  }
  return found->run(args);
}

bool asks_for_help(const std::string& word) {
  return word == "--help" || word == "-h" || word == "help";
}

// "help COMMAND", "help set KIND", and "help policy" with a command of it.
int run_help(const arguments& args) {
  if (args.empty() || (args.size() == 1 && asks_for_help(args[0]))) {
    print_help();
    return exit_done;
  }
  const bool set = args[0] == "set";
  const bool policy = args[0] == "policy";
  const std::size_t words = set || policy ? 2 : 1;
  if (args.size() > words) {
    const char* const takes = set      ? "\"set\" and a kind"
                              : policy ? "\"policy\" and a command of it"
                                       : "a command";
    throw failure(exit_usage,
                  "help: nothing is known of \"" + args[words] + "\"; it takes " + takes);
  }
  if (args.size() == 1) {
    return run_command(args[0], {"--help"});
  }
  return set ? run_command("set", {"NAME", args[1], "--help"})
             : run_command("policy", {args[1], "--help"});
}

int run(const arguments& args) {
  if (args.empty()) {
    throw failure(exit_usage, "which command? `trackctl --help` lists them");
  }
  const arguments rest(args.begin() + 1, args.end());
  if (asks_for_help(args[0])) {
    return run_help(rest);
  }
  if (args[0] == "--version") {
    std::cout << "trackctl " OT_VERSION "\n";
    return exit_done;
  }
  return args[0] == "complete" ? run_complete(rest) : run_command(args[0], rest);
}

int run_to_end(const arguments& args) {
  try {
    return run(args);
  } catch (const help_shown&) {
    return exit_done;
  }
}

}  // namespace
}  // namespace ot::trackctl

int main(int argc, char** argv) {
  return ot::run_program("trackctl", argc, argv, ot::trackctl::run_to_end);
}
