// A network namespace of a test's own: the body runs on a thread that has left the system's network
// behind, so nothing it does is seen outside, and everything goes when the thread ends.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>

namespace ot::testing {

// Runs `ip ARGUMENTS` in the calling thread's namespace.
inline void ip(const std::string& arguments) {
  ASSERT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
}

// The same; false when the system refuses, quietly: for what a kernel may lack.
inline bool ip_can(const std::string& arguments) {
  return std::system(("ip " + arguments + " 2>/dev/null").c_str()) == 0;
}

// Empty when the tests may make namespaces, else the reason why not.
inline std::string no_namespace_reason() {
  return geteuid() == 0 ? "" : "making a network namespace needs root";
}

template <typename Body>
void in_namespace(Body&& body) {
  std::thread([&] {
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "no network namespace: errno " << errno;
    body();
  }).join();
}

}  // namespace ot::testing
