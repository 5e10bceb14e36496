// Starting the commands of others: no shell, a process group of its own that can be ended as a
// whole, a small environment, and no descriptor of ours.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ot::children {

// Whom a command runs as.
struct identity {
  uid_t user = 0;
  gid_t group = 0;
  std::vector<gid_t> groups;  // all it is a member of
};

struct spawn_request {
  const std::vector<std::string>& argv;         // a program by its absolute path, and its arguments
  const std::vector<std::string>& environment;  // "NAME=VALUE", beside PATH
  const identity* user = nullptr;               // null: as ourselves, with all our rights
  int output = -1;  // standard output and error; -1: nowhere. There is no input
  int record = -1;  // gets the child's line of /proc/PID/stat before its program runs; -1: none
};

// 0 or an errno value, also of what failed in the child before the program ran. `ret` is the child,
// which leads its group and is killed when the calling thread dies; the caller reaps it.
int spawn(const spawn_request& what, pid_t* ret);

}  // namespace ot::children
