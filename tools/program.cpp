#include "tools/program.h"

#include <algorithm>
#include <iostream>

#include "platform/linux/standard_descriptors.h"

namespace ot {
namespace {

constexpr int exit_failed = 1;

// A terminal takes no orders from what stands in a name.
std::string plain(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](unsigned char c) { return (c < ' ' && c != '\n' && c != '\t') || c == 0x7f; }, '?');
  return text;
}

int end_with(const char* name, const std::exception& reason, int status) {
  std::cerr << name << ": " << plain(reason.what()) << '\n';
  return status;
}

}  // namespace

void check_output() {
  std::cout.flush();
  if (!std::cout) {
    throw tool_failure(exit_failed, "standard output cannot be written");
  }
}

int run_program(const char* name, int argc, char** argv,
                int (*run)(const std::vector<std::string>& args)) noexcept {
  try {
    reserve_standard_descriptors();
    const int status = run({argv + 1, argv + argc});
    check_output();
    return status;
  } catch (const tool_failure& reason) {
    return end_with(name, reason, reason.status);
  } catch (const std::exception& error) {
    return end_with(name, error, exit_failed);
  }
}

}  // namespace ot
