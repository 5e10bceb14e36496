// The program that answers a question for trackctl: one from standard input, the answer to standard
// output. Exit status 0, or 1 with the reason on standard error.
#include <exception>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

#include "tools/what_if/simulation.h"
#include "tools/what_if/wire.h"

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << "trackctl-what-if " OT_VERSION "\n";
    return 0;
  }
  if (argc > 1) {
    const bool asked = argc == 2 && std::string_view(argv[1]) == "--help";
    (asked ? std::cout : std::cerr) << "trackctl-what-if has no options but --help and --version: "
                                       "`trackctl what-if` runs it, see its --help\n";
    return asked ? 0 : 1;
  }
  try {
    const std::string asked{std::istreambuf_iterator<char>(std::cin), {}};
    const auto bytes =
        ot::what_if::encode(ot::what_if::simulate(ot::what_if::decode_question(asked)));
    std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::streamsize>(bytes.size()));
    std::cout.flush();
    return std::cout ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
