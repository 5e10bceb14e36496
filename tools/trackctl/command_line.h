// What a command takes: its options and arguments, where their values go, and its help. The library
// that parses them is slow to compile, so only command_line.cpp includes it.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ot::trackctl {

using arguments = std::vector<std::string>;

// An option or argument of a command; valid as long as its command line.
class command_option {
 public:
  explicit command_option(CLI::Option& option) noexcept : option_(&option) {}

  command_option& required();
  command_option& one_of(const std::vector<std::string>& words);
  // It may be given several times, with one value each time; otherwise a vector takes all that
  // follow.
  command_option& one_value_each();

 private:
  CLI::Option* option_;
};

// The values are assigned when `parse_arguments` returns, so what they are assigned to lives until
// then. A name is "NAME" for an argument, "--name" for an option.
class command_line {
 public:
  // `name` is what the help and errors call the command, such as "trackctl show".
  command_line(const std::string& description, const std::string& name);
  ~command_line();
  command_line(const command_line&) = delete;
  command_line& operator=(const command_line&) = delete;

  // What stands below the help: examples.
  void footer(const std::string& text);
  command_option add_option(const std::string& name, std::string& ret, const std::string& help);
  command_option add_option(const std::string& name, std::optional<std::string>& ret,
                            const std::string& help);
  command_option add_option(const std::string& name, std::vector<std::string>& ret,
                            const std::string& help);
  void add_flag(const std::string& name, bool& ret, const std::string& help);

  // After parsing: the words that were given for it; none for a name that there is not.
  [[nodiscard]] std::vector<std::string> values(const std::string& name) const;
  // How often it was given.
  [[nodiscard]] std::size_t count(const std::string& name) const;

  friend void parse_arguments(command_line& line, const arguments& args);

 private:
  std::unique_ptr<CLI::App> app_;
};

struct help_shown {};

// Throws failure(exit_usage) for a bad command line and help_shown after having printed the help.
// Options may stand anywhere; "--" ends them.
void parse_arguments(command_line& line, const arguments& args);

}  // namespace ot::trackctl
