// Who a program runs as is always said: a user, or root in so many words.
#include "tools/trackpolicy/kinds/running.h"

#include <pwd.h>

namespace ot::trackpolicy {

std::string user_value(const toml::node& node) {
  std::string name = settings::text_value(node);
  const passwd* const found = getpwnam(name.c_str());
  if (found == nullptr) {
    throw settings::value_error("there is no user \"" + name + "\" on this machine");
  }
  if (found->pw_uid == 0) {
    throw settings::value_error("is root; say \"run_as_root = true\" if that is meant");
  }
  return name;
}

void check_runner(const toml::table& table, const policy& of, settings::problem_list& problems) {
  if (of.run_as_root && table.contains("user")) {
    problems.add(table.get("user")->source(), "either \"user\" or \"run_as_root\", not both");
  } else if (of.user.empty() && !of.run_as_root) {
    problems.add(table.source(),
                 "the policy does not say who its command runs as: \"user\", or "
                 "\"run_as_root = true\"");
  }
}

std::string describe_run(const policy& of, const words& argv) {
  if (argv.empty()) {
    return "does nothing";
  }
  std::string text = "runs as " + (of.run_as_root ? "root" : of.user) + ", for at most " +
                     std::to_string(of.timeout_ms) + " ms:";
  for (const std::string& word : argv) {
    const bool plain = !word.empty() && word.find_first_of(" \t\n\"'") == std::string::npos;
    text += plain ? ' ' + word : " \"" + word + '"';
  }
  return text;
}

}  // namespace ot::trackpolicy
