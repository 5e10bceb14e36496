// The C entry point of the executable. Without arguments it is the service; "show" belongs to the
// service's own front-end; the rest is answered here.
#include "core/start/main.h"

#include <cstdio>
#include <string_view>

#include "platform/linux/process/service.h"

namespace {

constexpr const char* usage =
    "usage: object_tracking                                      run the service\n"
    "       object_tracking show track NAME|all-tracks [all]     show tracks\n"
    "       object_tracking --help | --version\n";

constexpr int usage_error = 2;

}  // namespace

int main(int argc, char** argv) {
  if (argc == 1) {
    return ot::run_service();
  }
  const std::string_view command = argv[1];
  if (command == "show") {
    return ot::main(argc, argv);
  }
  if (argc == 2 && command == "--help") {
    std::fputs(usage, stdout);
    return 0;
  }
  if (argc == 2 && command == "--version") {
    std::puts("object_tracking " OT_VERSION);
    return 0;
  }
  std::fputs(usage, stderr);
  return usage_error;
}
