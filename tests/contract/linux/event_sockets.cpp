// Losing events on purpose: a socket with room for hardly one message loses all others of a burst.
#include "tests/contract/linux/event_sockets.h"

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

// A netlink socket as the kernel lists it.
struct listed_socket {
  unsigned long inode;
  unsigned long drops;
};

// Those of this thread's namespace.
std::vector<listed_socket> listed_sockets() {
  std::ifstream table("/proc/thread-self/net/netlink");
  std::string line;
  std::getline(table, line);  // sk Eth Pid Groups Rmem Wmem Dump Locks Drops Inode
  std::vector<listed_socket> sockets;
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string skipped;
    for (int column = 0; column < 8; ++column) {
      columns >> skipped;
    }
    listed_socket listed{};
    columns >> listed.drops >> listed.inode;
    sockets.push_back(listed);
  }
  return sockets;
}

bool listens_to(int fd, unsigned groups) {
  sockaddr_nl address{};
  socklen_t length = sizeof address;
  return getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
         address.nl_family == AF_NETLINK && (address.nl_groups & groups) != 0;
}

}  // namespace

int shrink_event_sockets(unsigned groups) {
  const std::vector<listed_socket> here = listed_sockets();
  int shrunk = 0;
  for (int fd = 3; fd < 256; ++fd) {
    struct stat found {};
    if (listens_to(fd, groups) && fstat(fd, &found) == 0 &&
        std::any_of(here.begin(), here.end(),
                    [&](const listed_socket& one) { return one.inode == found.st_ino; })) {
      const int smallest = 1;
      EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest), 0);
      ++shrunk;
    }
  }
  return shrunk;
}

unsigned long dropped_messages() {
  unsigned long sum = 0;
  for (const listed_socket& one : listed_sockets()) {
    sum += one.drops;
  }
  return sum;
}
