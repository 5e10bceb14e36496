// qmond: the network-probe service. Without arguments it runs in the foreground; the commands look
// at a configuration or at a running one. This file finds the command and turns what is thrown into
// an exit status.
#include <iostream>
#include <string>
#include <vector>

#include "tools/qmond/config.h"
#include "tools/qmond/qmond.h"
#include "tools/qmond/status.h"

namespace ot::qmond {
namespace {

using arguments = std::vector<std::string>;

constexpr const char* help =
    "usage: qmond [--commands-as-root]  run the probes of /etc/object_tracking/probes.toml; root\n"
    "                                   runs command operations only with the option\n"
    "       qmond --check FILE          say every error of a configuration file\n"
    "       qmond status [--json]       the operations of the running qmond and their results\n"
    "       qmond --help | --version\n\n"
    "SIGHUP reads the configuration again; operations that are the same go on.\n"
    "Exit status: 0 done, 1 failed, 2 usage, 3 qmond is not running.\n";

// Prints every error of the file with its place on standard error, or that there is none. For
// editors, scripts and the operator.
int check_file(const std::string& path) {
  const configuration config = read_config(path);
  for (const problem& what : config.problems) {
    std::cerr << problem_text(path, what) << '\n';
  }
  if (!config.problems.empty()) {
    return exit_failed;
  }
  const std::size_t count = config.operations.size();
  std::cout << path << ": " << count << (count == 1 ? " operation" : " operations")
            << ", no errors\n";
  return exit_done;
}

int run(const arguments& args) {
  if (args.empty() || args == arguments{"--commands-as-root"}) {
    return run_daemon({.commands_as_root = !args.empty()});
  }
  if (args[0] == "--check") {
    if (args.size() != 2) {
      throw failure(exit_usage, "--check needs one file: qmond --check FILE");
    }
    return check_file(args[1]);
  }
  if (args[0] == "status") {
    return run_status({args.begin() + 1, args.end()});
  }
  if (args == arguments{"--help"} || args == arguments{"-h"}) {
    std::cout << help;
    return exit_done;
  }
  if (args == arguments{"--version"}) {
    std::cout << "qmond " OT_VERSION "\n";
    return exit_done;
  }
  throw failure(exit_usage, "there is no command \"" + args[0] + "\"; `qmond --help` lists them");
}

}  // namespace
}  // namespace ot::qmond

int main(int argc, char** argv) {
  return ot::run_program("qmond", argc, argv, ot::qmond::run);
}
