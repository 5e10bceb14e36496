// A test tool that changes many routes in a short time: host routes of 172.16.0.0/16 through
// DEVICE, each added and then deleted, at RATE changes a second for SECONDS. Prints how many
// changes the kernel has made. Exit status: 0 done at that rate, 1 an error, or slower; 2 usage.
#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>

namespace {

using clock = std::chrono::steady_clock;

constexpr unsigned batch_size = 100;
constexpr std::uint32_t first_address = 0xac100000;

struct close_socket {
  void operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }
};

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class storm {
 public:
  explicit storm(unsigned ifindex) : ifindex_(ifindex), socket_(mnl_socket_open(NETLINK_ROUTE)) {
    if (ifindex == 0) fail("device");
    if (!socket_ || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) fail("socket");
  }

  // One batch of additions, or the deletion of the same routes. The kernel has made all of them
  // when this returns.
  void run(bool add) {
    nlmsghdr* message = nullptr;
    std::size_t used = 0;
    for (unsigned number = 0; number < batch_size; ++number) {
      message = put(requests_.data() + used, number, add);
      used += MNL_ALIGN(message->nlmsg_len);
    }
    message->nlmsg_flags |= NLM_F_ACK;
    if (mnl_socket_sendto(socket_.get(), requests_.data(), used) < 0) fail("requests");
    // An error of an earlier request would come before the acknowledgement of the last.
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), answer_.data(), answer_.size());
    if (size < 0 || mnl_cb_run(answer_.data(), static_cast<std::size_t>(size), sequence_,
                               mnl_socket_get_portid(socket_.get()), nullptr, nullptr) < 0) {
      fail("answer");
    }
  }

 private:
  nlmsghdr* put(char* at, unsigned number, bool add) {
    nlmsghdr* message = mnl_nlmsg_put_header(at);
    message->nlmsg_type = add ? RTM_NEWROUTE : RTM_DELROUTE;
    message->nlmsg_flags = NLM_F_REQUEST | (add ? NLM_F_CREATE | NLM_F_EXCL : 0);
    message->nlmsg_seq = ++sequence_;
    auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
    route->rtm_family = AF_INET;
    route->rtm_dst_len = 32;
    route->rtm_table = RT_TABLE_MAIN;
    route->rtm_protocol = RTPROT_STATIC;
    route->rtm_scope = RT_SCOPE_LINK;
    route->rtm_type = RTN_UNICAST;
    mnl_attr_put_u32(message, RTA_DST, htonl(first_address + number));
    mnl_attr_put_u32(message, RTA_OIF, ifindex_);
    return message;
  }

  unsigned ifindex_;
  unsigned sequence_ = 0;
  std::unique_ptr<mnl_socket, close_socket> socket_;
  alignas(nlmsghdr) std::array<char, std::size_t{batch_size} * 64> requests_;
  alignas(nlmsghdr) std::array<char, 8192> answer_;
};

// The changes made, and whether that took no longer than it should.
bool rage(const char* device, unsigned rate, unsigned seconds) {
  storm changes(if_nametoindex(device));
  const unsigned batches = rate / batch_size * seconds / 2 * 2;
  const auto step = std::chrono::nanoseconds(std::chrono::seconds(1)) * batch_size / rate;
  const auto begin = clock::now();
  for (unsigned batch = 0; batch < batches; ++batch) {
    std::this_thread::sleep_until(begin + step * batch);
    changes.run(batch % 2 == 0);
  }
  const auto late = clock::now() - (begin + std::chrono::seconds(seconds));
  std::printf("%u\n", batches * batch_size);
  return late < std::chrono::seconds(seconds) / 4;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: route_storm DEVICE RATE SECONDS\n", stderr);
    return 2;
  }
  const auto number = [argv](int index) {
    return static_cast<unsigned>(std::strtoul(argv[index], nullptr, 10));
  };
  try {
    if (!rage(argv[1], number(2), number(3))) {
      std::fputs("route_storm: the kernel is too slow for that rate\n", stderr);
      return 1;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "route_storm: %s\n", error.what());
    return 1;
  }
  return 0;
}
