// Checking a configuration without running it: for editors, scripts and the operator's peace of
// mind.
#include "tools/qmond/check.h"

#include <iostream>

#include "tools/qmond/config.h"
#include "tools/qmond/failure.h"

namespace ot::qmond {

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

}  // namespace ot::qmond
