// Which prefixes are looked up after a change of a link, and that each gets its own answer although
// the kernel is asked about many at a time.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/fib_client.h"
#include "platform/linux/unique_fd.h"
#include "tests/contract/contract_test.h"
#include "tests/contract/linux/network_namespace.h"
#include "tests/contract/router.h"

namespace ot::contract {
namespace {

using namespace std::chrono_literals;
using testing::ip;

constexpr unsigned count = 100;

// While there is one, what this process asks routing netlink fails: the sockets that ask are none.
class refused_requests {
 public:
  refused_requests() {
    const unique_fd other(eventfd(0, EFD_CLOEXEC));
    for (int fd = 0; fd < descriptors; ++fd) {
      if (asks(fd)) {
        kept_.emplace_back(fd, unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, descriptors)));
        dup3(other.get(), fd, O_CLOEXEC);
      }
    }
    EXPECT_FALSE(kept_.empty());
  }
  ~refused_requests() {
    for (const auto& [fd, kept] : kept_) {
      dup3(kept.get(), fd, O_CLOEXEC);
    }
  }
  refused_requests(const refused_requests&) = delete;
  refused_requests& operator=(const refused_requests&) = delete;

 private:
  static constexpr int descriptors = 100;

  static bool asks(int fd) {
    sockaddr_nl own{};
    socklen_t size = sizeof own;
    return getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size) == 0 &&
           own.nl_family == AF_NETLINK && own.nl_groups == 0;
  }

  std::vector<std::pair<int, unique_fd>> kept_;
};

class route_looks : public contract_test {
 protected:
  void SetUp() override {
    contract_test::SetUp();
    if (const std::string reason = interfaces_unavailable(); !reason.empty()) {
      GTEST_SKIP() << reason;
    }
    make_interface("ct0");
    make_interface("ct1");
    for (unsigned number = 0; number < count; ++number) {
      if (number % 3 != 2) {
        add_route(prefix(number) + "/24", interface_of(number));
      }
    }
    ip("address add 10.0.7.0/32 dev ct1");  // an address of the router's own in one of them
    current_ = this;
    const rtclient_parameters parameters{"contract", 1, manager(), 3225};
    ASSERT_EQ(rtclient_init(parameters, {on_change, [] {}, [] { current_->connected_ = true; }},
                            &client_),
              0);
    ASSERT_TRUE(run_until([this] { return connected_; }));
    for (unsigned number = 0; number < count; ++number) {
      register_prefix(prefix(number));
    }
  }
  void TearDown() override {
    if (client_ != nullptr) {
      rtclient_close(client_);
    }
    contract_test::TearDown();
  }

  void register_prefix(const std::string& address) {
    rtclient_registration request;
    request.table_id = main_table;
    request.family = fib_family_ipv4;
    inet_pton(AF_INET, address.c_str(), &request.prefix);
    request.prefix_length = 24;
    ASSERT_EQ(rtclient_bulk_reg_notif(client_, {&request, 1}), 0);
  }

  static std::string prefix(unsigned number) { return "10.0." + std::to_string(number) + ".0"; }
  static const char* interface_of(unsigned number) { return number % 3 == 0 ? "ct0" : "ct1"; }

  // What is right while the links of these names have no carrier.
  static std::map<std::string, std::string> truth(const std::string& cut) {
    std::map<std::string, std::string> answers;
    for (unsigned number = 0; number < count; ++number) {
      const bool found = number % 3 != 2 && interface_of(number) != cut;
      answers[prefix(number)] = found ? std::string("24 ") + interface_of(number) : "none";
    }
    answers["10.0.7.0"] += " own";
    return answers;
  }
  bool becomes(const std::map<std::string, std::string>& wanted) {
    return run_until([&] { return answers_ == wanted; });
  }

  static void on_change(const rtclient_notification* notification) {
    char address[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &notification->prefix, address, sizeof address);
    rtclient_result* result = nullptr;
    EXPECT_EQ(rtclient_lookup(current_->client_, fib_family_ipv4, notification->table_id,
                              notification->prefix, &result),
              0);
    const std::unique_ptr<rtclient_result, void (*)(rtclient_result*)> owner{result,
                                                                             rtclient_lookup_free};
    ASSERT_NE(result, nullptr);
    current_->answers_[address] =
        (result->route_found
             ? std::to_string(result->prefix_length) + " " + std::string(result->first_hop.view())
             : "none") +
        (result->own_address ? " own" : "");
  }

  static inline route_looks* current_ = nullptr;
  rtclient* client_ = nullptr;
  bool connected_ = false;
  std::map<std::string, std::string> answers_;
};

TEST_F(route_looks, give_each_prefix_its_own_answer_as_links_come_and_go) {
  EXPECT_TRUE(becomes(truth("")));
  for (const std::string link : {"ct0", "ct1", "ct0"}) {
    cut_link(link);
    EXPECT_TRUE(becomes(truth(link))) << link << " cut";
    restore_link(link);
    EXPECT_TRUE(becomes(truth(""))) << link << " restored";
  }
}

TEST_F(route_looks, end_right_when_a_link_flaps_faster_than_they_follow) {
  ASSERT_TRUE(becomes(truth("")));
  for (int flap = 0; flap < 10; ++flap) {
    cut_link("ct0");
    let_pass(manager(), std::chrono::milliseconds(flap));
    restore_link("ct0");
    let_pass(manager(), 1ms);
  }
  cut_link("ct0");
  EXPECT_TRUE(becomes(truth("ct0")));
  let_pass(manager(), 200ms);
  EXPECT_EQ(answers_, truth("ct0"));
}

// The kernel has no memory for answers, and then has it again.
TEST_F(route_looks, are_made_again_soon_when_the_kernel_could_not_answer) {
  ASSERT_TRUE(becomes(truth("")));
  {
    const refused_requests refused;
    ip("route add 10.0.2.0/24 dev ct0");
    let_pass(manager(), 300ms);  // after all looks that this is a reason for by itself
    EXPECT_EQ(answers_, truth(""));
  }
  EXPECT_TRUE(run_until([this] { return answers_["10.0.2.0"] == "24 ct0"; }));
}

TEST_F(route_looks, at_what_is_new_are_made_again_soon_too) {
  ASSERT_TRUE(becomes(truth("")));
  {
    const refused_requests refused;
    register_prefix("10.1.0.0");
    let_pass(manager(), 20ms);
    EXPECT_EQ(answers_.count("10.1.0.0"), 0U);
  }
  EXPECT_TRUE(run_until([this] { return answers_["10.1.0.0"] == "none"; }));
}

// Only what comes over the link is known to be concerned; the rest is looked at all the same.
TEST_F(route_looks, find_what_changes_by_a_link_that_no_answer_came_by) {
  ASSERT_TRUE(becomes(truth("")));
  ASSERT_EQ(std::system("sysctl -qw net.ipv4.conf.ct0.ignore_routes_with_linkdown=1"), 0);
  ip("route add 10.0.2.0/24 dev ct0");
  ASSERT_TRUE(run_until([this] { return answers_["10.0.2.0"] == "24 ct0"; }));
  cut_link("ct0");
  ASSERT_TRUE(run_until([this] { return answers_["10.0.2.0"] == "none"; }));
  restore_link("ct0");
  EXPECT_TRUE(run_until([this] { return answers_["10.0.2.0"] == "24 ct0"; }));
}

}  // namespace
}  // namespace ot::contract
