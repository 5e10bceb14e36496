// The frame of a tool's `main`: what ends it, and with which words and exit status.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace ot {

// Thrown by whatever cannot go on; run_program prints the text and exits. The status is one of the
// tool's own.
struct tool_failure : std::runtime_error {
  tool_failure(int exit, const std::string& text) : std::runtime_error(text), status(exit) {}
  int status;
};

// Throws, with exit status 1, when what was printed has not reached standard output; what stands in
// the buffer may still fail to reach a full disk.
void check_output();

// Runs `run` with what stands behind the program's name; its exit status. Whatever it throws is
// printed on standard error behind "NAME: ", without orders to a terminal; so is that standard
// output has not taken all. Exits with 1 but for a tool_failure.
int run_program(const char* name, int argc, char** argv,
                int (*run)(const std::vector<std::string>& args)) noexcept;

}  // namespace ot
