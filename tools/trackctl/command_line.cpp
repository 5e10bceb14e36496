#include "tools/trackctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "tools/trackctl/command.h"

namespace ot::trackctl {
namespace {

// Null for a name that there is not. The library's own way ends the process where memory is
// lacking.
const CLI::Option* find_option(const CLI::App& app, const std::string& name) {
  const std::vector<const CLI::Option*> options = app.get_options();
  const auto found =
      std::find_if(options.begin(), options.end(),
                   [&name](const CLI::Option* option) { return option->check_name(name); });
  return found == options.end() ? nullptr : *found;
}

}  // namespace

command_option& command_option::required() {
  option_->required();
  return *this;
}

command_option& command_option::one_of(const std::vector<std::string>& words) {
  option_->check(CLI::IsMember(words));
  return *this;
}

command_option& command_option::one_value_each() {
  option_->take_all()->allow_extra_args(false);
  return *this;
}

command_line::command_line(const std::string& description, const std::string& name)
    : app_(std::make_unique<CLI::App>(description, name)) {}

command_line::~command_line() = default;

void command_line::footer(const std::string& text) {
  app_->footer(text);
}

command_option command_line::add_option(const std::string& name, std::string& ret,
                                        const std::string& help) {
  return command_option{*app_->add_option(name, ret, help)};
}

command_option command_line::add_option(const std::string& name, std::optional<std::string>& ret,
                                        const std::string& help) {
  return command_option{*app_->add_option(name, ret, help)};
}

command_option command_line::add_option(const std::string& name, std::vector<std::string>& ret,
                                        const std::string& help) {
  return command_option{*app_->add_option(name, ret, help)};
}

void command_line::add_flag(const std::string& name, bool& ret, const std::string& help) {
  app_->add_flag(name, ret, help);
}

std::vector<std::string> command_line::values(const std::string& name) const {
  const CLI::Option* const option = find_option(*app_, name);
  return option == nullptr ? std::vector<std::string>{} : option->results();
}

std::size_t command_line::count(const std::string& name) const {
  const CLI::Option* const option = find_option(*app_, name);
  return option == nullptr ? 0 : option->count();
}

void parse_arguments(command_line& line, const arguments& args) {
  try {
    line.app_->parse(arguments(args.rbegin(), args.rend()));
  } catch (const CLI::Success&) {
    std::cout << line.app_->help();
    throw help_shown{};
  } catch (const CLI::ParseError& error) {
    throw failure(exit_usage,
                  std::string(error.what()) + "; `" + line.app_->get_name() + " --help` shows how");
  }
}

}  // namespace ot::trackctl
