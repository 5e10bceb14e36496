// Requests to the kernel, and what becomes of one that it cannot answer.
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <cerrno>

#include "platform/linux/netlink/socket.h"

namespace ot {
namespace {

// The kernel finds out that it has no such protocol only when it is to fill the answer.
TEST(netlink_requests, a_dump_that_fails_once_it_has_begun_has_failed) {
  netlink_socket kernel;
  ASSERT_EQ(kernel.open_requests(NETLINK_SOCK_DIAG), 0);
  netlink_request request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = SOCK_DIAG_BY_FAMILY;
  message->nlmsg_flags = NLM_F_DUMP;
  auto* question =
      static_cast<inet_diag_req_v2*>(mnl_nlmsg_put_extra_header(message, sizeof(inet_diag_req_v2)));
  *question = inet_diag_req_v2{};
  question->sdiag_family = AF_INET;
  question->sdiag_protocol = 253;  // set aside for experiments (RFC 3692)
  int told = 0;
  const int status = kernel.request(
      message, [](void* count, const nlmsghdr&) { ++*static_cast<int*>(count); }, &told);
  EXPECT_EQ(status, ENOENT);
  EXPECT_EQ(told, 0);
}

nlmsghdr* link_question(netlink_request& request, int ifindex) {
  nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
  message->nlmsg_type = RTM_GETLINK;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  link->ifi_index = ifindex;
  return message;
}

TEST(netlink_requests, an_answer_that_nobody_waited_for_is_passed_over) {
  netlink_socket kernel;
  ASSERT_EQ(kernel.open_requests(), 0);
  netlink_request earlier;
  nlmsghdr* message = link_question(earlier, 1);
  message->nlmsg_flags = NLM_F_REQUEST;
  message->nlmsg_seq = 0x80000000;
  ASSERT_EQ(send(kernel.fd(), message, message->nlmsg_len, 0),
            static_cast<ssize_t>(message->nlmsg_len));
  netlink_request request;
  int told = 0;
  const int status = kernel.ask(
      link_question(request, 0x7fffffff),
      [](void* count, const nlmsghdr&) { ++*static_cast<int*>(count); }, &told);
  EXPECT_EQ(status, ENODEV);
  EXPECT_EQ(told, 0);
}

}  // namespace
}  // namespace ot
