// Which BFD engine is to run the sessions: by the operator's word, by who listens, and by how long
// the present one has been away.
#include "platform/linux/bfd/choice.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/unique_fd.h"

namespace ot::bfd {
namespace {

const engine_choice own;
const engine_choice control{engine_kind::frr_control, "/control"};
const engine_choice vty{engine_kind::frr_vty, "/vty"};
constexpr auto automatic = engine_wish::automatic;

struct decision {
  engine_situation now;
  engine_choice expected;
  const char* what;
};

TEST(bfd_engine_choice, is_for_bfdd_where_it_runs_and_ours_elsewhere) {
  constexpr std::nullopt_t none = std::nullopt;
  const decision rows[] = {
      {{automatic, none, none, none}, own, "nobody is there"},
      {{automatic, none, control, none}, control, "bfdd is there"},
      {{automatic, own, none, none}, own, "ours runs"},
      {{automatic, own, vty, none}, vty, "bfdd comes while ours runs"},
      {{automatic, own, none, 60'000'000}, own, "another has the port"},
      {{automatic, own, control, 60'000'000}, control, "and it is bfdd"},
      {{automatic, control, control, none}, control, "bfdd runs"},
      {{automatic, control, none, 0}, control, "bfdd has just ended"},
      {{automatic, control, none, frr_return_usec - 1}, control, "and may come back"},
      {{automatic, control, none, frr_return_usec}, own, "and does not"},
      {{automatic, control, vty, 1}, vty, "another release of it comes back"},
      {{engine_wish::own, none, control, none}, own, "ours is wished for"},
      {{engine_wish::own, control, control, none}, own, "ours is wished for"},
      {{engine_wish::frr, control, none, 60'000'000},
       control,
       "bfdd is wished for, and waited for"},
      {{engine_wish::frr, vty, control, 1}, control, "any bfdd will do"},
  };
  for (const decision& row : rows) EXPECT_EQ(choose_engine(row.now), row.expected) << row.what;
}

TEST(bfd_engine_choice, waits_for_a_bfdd_that_is_wished_for_and_was_never_there) {
  for (const auto& present : {std::optional<engine_choice>{}, std::optional{own}}) {
    const engine_choice chosen = choose_engine({engine_wish::frr, present, {}, {}});
    EXPECT_NE(chosen.kind, engine_kind::own);
    EXPECT_FALSE(chosen.path.empty());
  }
}

class variable {
 public:
  variable(const char* name, const char* value) : name_(name) {
    const char* before = std::getenv(name);
    if (before != nullptr) before_ = before;
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  }
  ~variable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
  variable(const variable&) = delete;
  variable& operator=(const variable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> before_;
};

TEST(bfd_engine_choice, hears_the_operator_s_word) {
  struct {
    const char* word;
    engine_wish expected;
    const char* unknown;
  } const rows[] = {{nullptr, automatic, ""},      {"", automatic, ""},
                    {"auto", automatic, ""},       {"OWN", automatic, "OWN"},
                    {"owned", automatic, "owned"}, {"own", engine_wish::own, ""},
                    {"frr", engine_wish::frr, ""}};
  for (const auto& row : rows) {
    const variable word("OT_BFD_ENGINE", row.word);
    std::string_view unknown = "?";
    EXPECT_EQ(wished_engine(&unknown), row.expected)
        << (row.word == nullptr ? "(unset)" : row.word);
    EXPECT_EQ(unknown, row.unknown);
  }
}

TEST(bfd_engine_choice, takes_the_operator_s_socket_for_all) {
  {
    const variable chosen("OT_BFDD_SOCKET", "/somewhere/bfdd.sock");
    const auto sockets = frr_sockets();
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_EQ(sockets[0], (engine_choice{engine_kind::frr_control, "/somewhere/bfdd.sock"}));
  }
  {
    const variable chosen("OT_BFDD_SOCKET", "/somewhere/bfdd.vty");
    ASSERT_EQ(frr_sockets().size(), 1U);
    EXPECT_EQ(frr_sockets()[0], (engine_choice{engine_kind::frr_vty, "/somewhere/bfdd.vty"}));
  }
  const variable chosen("OT_BFDD_SOCKET", "");
  const variable root("OT_ROOT", "/elsewhere");
  EXPECT_GT(frr_sockets().size(), 1U);
  for (const engine_choice& socket : frr_sockets()) {
    EXPECT_EQ(socket.path.find("/elsewhere/"), 0U) << socket.path;
  }
}

TEST(bfd_engine_choice, knows_a_socket_that_somebody_listens_on) {
  char folder[] = "/tmp/ot-choice-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string path = std::string(folder) + "/s";
  const engine_choice socket_there{engine_kind::frr_control, path};
  const engine_choice nowhere{engine_kind::frr_vty, std::string(folder) + "/none"};
  EXPECT_EQ(listening({nowhere, socket_there}), std::nullopt) << "there is no file";

  const unique_fd server{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(server.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listening({nowhere, socket_there}), std::nullopt) << "nobody listens yet";
  ASSERT_EQ(listen(server.get(), 0), 0);
  std::vector<unique_fd> queue;
  for (int i = 0; i < 3; ++i) {  // nobody accepts: the queue fills
    EXPECT_EQ(listening({nowhere, socket_there}), socket_there) << i;
    unique_fd waiting{socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    if (connect(waiting.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
      queue.push_back(std::move(waiting));
    }
  }
  unlink(path.c_str());
  rmdir(folder);
}

}  // namespace
}  // namespace ot::bfd
