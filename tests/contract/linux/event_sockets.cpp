// Losing events on purpose: a socket with room for hardly one message loses all others of a burst.
#include "tests/contract/linux/event_sockets.h"

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <fstream>
#include <sstream>
#include <string>

int shrink_event_sockets(unsigned groups) {
  int shrunk = 0;
  for (int fd = 3; fd < 256; ++fd) {
    sockaddr_nl address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        address.nl_family == AF_NETLINK && (address.nl_groups & groups) != 0) {
      const int smallest = 1;
      EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest), 0);
      ++shrunk;
    }
  }
  return shrunk;
}

unsigned long dropped_messages() {
  std::ifstream table("/proc/thread-self/net/netlink");
  std::string line;
  std::getline(table, line);  // sk Eth Pid Groups Rmem Wmem Dump Locks Drops Inode
  unsigned long sum = 0;
  while (std::getline(table, line)) {
    std::istringstream columns(line);
    std::string skipped;
    for (int column = 0; column < 8; ++column) {
      columns >> skipped;
    }
    unsigned long drops = 0;
    columns >> drops;
    sum += drops;
  }
  return sum;
}
