// Readers of the log that do not read: nobody waits for them, and they learn what they have missed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/log/follower.h"
#include "platform/linux/log/sinks.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/unix_address.h"

namespace ot::testing {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr errmsg_record info{"OT", "SERVICES", "TRACK_INFO", "%s",
                             6,    0x11eb0002, {0, 0, 0},    nullptr};

// Lines as the queue holds them.
std::string queue_of(int first, int count) {
  std::string queue;
  for (int i = first; i < first + count; ++i) {
    const std::string text = "line " + std::to_string(i);
    const log_line_header header{&info, 6, static_cast<std::uint32_t>(text.size())};
    queue.append(reinterpret_cast<const char*>(&header), sizeof header);
    queue += text;
  }
  return queue;
}

std::string readable(int number) {
  return "OT-SERVICES-6-TRACK_INFO: line " + std::to_string(number) + "\n";
}

constexpr int many = 20'000;  // more than anybody buffers

// All that can be read at once.
std::string drain(int fd) {
  std::string all;
  char piece[65536];
  pollfd state{fd, POLLIN, 0};
  while (poll(&state, 1, 0) == 1 && (state.revents & POLLIN) != 0) {
    const ssize_t count = read(fd, piece, sizeof piece);
    if (count <= 0) {
      break;
    }
    all.append(piece, static_cast<std::size_t>(count));
  }
  return all;
}

struct two_ends {
  unique_fd writer;
  unique_fd reader;
};

two_ends make_pipe() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return {unique_fd{ends[1]}, unique_fd{ends[0]}};
}

two_ends make_sockets() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {unique_fd{ends[1]}, unique_fd{ends[0]}};
}

two_ends make_terminal() {
  unique_fd reader{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
  EXPECT_EQ(grantpt(reader.get()), 0);
  EXPECT_EQ(unlockpt(reader.get()), 0);
  unique_fd writer{open(ptsname(reader.get()), O_RDWR | O_NOCTTY | O_CLOEXEC)};
  termios raw{};
  tcgetattr(writer.get(), &raw);
  cfmakeraw(&raw);
  tcsetattr(writer.get(), TCSANOW, &raw);
  return {std::move(writer), std::move(reader)};
}

class log_streams : public ::testing::TestWithParam<two_ends (*)()> {
 protected:
  void SetUp() override {
    alarm(20);  // one that waits shall not wait for ever
    ends_ = GetParam()();
  }
  void TearDown() override { alarm(0); }

  // Has the follower write all of the queue while somebody reads; what was read.
  std::string write_and_read(log_follower& follower, const std::string& queue) {
    std::string all;
    while (!follower.write(queue)) {
      all += drain(ends_.reader.get());
    }
    return all + drain(ends_.reader.get());
  }

  two_ends ends_;
};

TEST_P(log_streams, an_unread_one_takes_what_it_can_and_goes_on_where_it_was) {
  log_stream stream{ends_.writer.get()};
  log_follower follower;
  follower.follow(stream);
  const std::string queue = queue_of(0, many);
  ASSERT_FALSE(follower.write(queue));
  EXPECT_FALSE(follower.write(queue));
  const std::string got = write_and_read(follower, queue);
  std::string wanted;
  for (int i = 0; i < many; ++i) {
    wanted += readable(i);
  }
  EXPECT_TRUE(got == wanted) << got.size() << " bytes in place of " << wanted.size();
}

TEST_P(log_streams, one_that_missed_lines_learns_how_many) {
  log_stream stream{ends_.writer.get()};
  log_follower follower;
  follower.follow(stream);
  const std::string queue = queue_of(0, many);
  ASSERT_FALSE(follower.write(queue));
  EXPECT_EQ(follower.missed(), 0U);
  follower.drop_rest(queue);
  follower.rewind();
  const std::string first = drain(ends_.reader.get());
  const auto whole = static_cast<int>(std::count(first.begin(), first.end(), '\n'));
  EXPECT_EQ(follower.missed(), static_cast<std::uint64_t>(many - whole));
  const std::string later = write_and_read(follower, queue_of(many, 1));
  EXPECT_THAT(later, HasSubstr("OT-SERVICES-4-LOG_DROPPED: " + std::to_string(many - whole) +
                               " lines of the log were dropped: it was not read\n"));
  EXPECT_THAT(later, EndsWith("\n" + readable(many)));
}

TEST_P(log_streams, nobody_at_the_other_end_is_nobodys_worry) {
  log_stream stream{ends_.writer.get()};
  log_follower follower;
  follower.follow(stream);
  ends_.reader.reset();
  signal(SIGPIPE, SIG_IGN);
  EXPECT_TRUE(follower.write(queue_of(0, 100)));
}

std::string name_of_kind(const ::testing::TestParamInfo<two_ends (*)()>& tested) {
  constexpr const char* names[] = {"pipe", "socket", "terminal"};
  return names[tested.index];
}

INSTANTIATE_TEST_SUITE_P(kinds, log_streams,
                         ::testing::Values(make_pipe, make_sockets, make_terminal), name_of_kind);

class log_socket : public ::testing::Test {
 protected:
  void SetUp() override {
    alarm(20);
    ASSERT_NE(mkdtemp(folder_), nullptr);
    path_ = std::string(folder_) + "/socket";
    listen();
  }
  void TearDown() override {
    alarm(0);
    std::filesystem::remove_all(folder_);
  }
  void listen() {
    unlink(path_.c_str());
    sockaddr_un address;
    ASSERT_TRUE(unix_address(path_, &address));
    reader_ = unique_fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    ASSERT_EQ(bind(reader_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  std::vector<std::string> received() {
    std::vector<std::string> all;
    char piece[4096];
    for (ssize_t count = 0; (count = read(reader_.get(), piece, sizeof piece)) >= 0;) {
      all.emplace_back(piece, static_cast<std::size_t>(count));
    }
    return all;
  }

  char folder_[32] = "/tmp/ot-log-XXXXXX";
  std::string path_;
  unique_fd reader_;
};

TEST_F(log_socket, the_journal_gets_fields) {
  log_datagrams journal{path_.c_str(), log_for_journal};
  log_follower follower;
  follower.follow(journal);
  ASSERT_TRUE(follower.write(queue_of(7, 1)));
  const std::string message = "OT-SERVICES-6-TRACK_INFO: line 7";
  const std::string expected = "MESSAGE\n" + std::string(1, static_cast<char>(message.size())) +
                               std::string(7, '\0') + message +
                               "\nPRIORITY=6\nSYSLOG_FACILITY=3\n"
                               "SYSLOG_IDENTIFIER=object_tracking\nOT_FACILITY=OT\n"
                               "OT_GROUP=SERVICES\nOT_MESSAGE=TRACK_INFO\nOT_NUMBER=0x11eb0002\n";
  EXPECT_EQ(received(), std::vector<std::string>{expected});
}

TEST_F(log_socket, the_journal_gets_a_messages_own_fields_and_others_do_not) {
  const std::string text = "one";
  const std::string fields = "OT_TRACK=uplink\nOT_STATE=up\n";
  const log_line_header header{&info, 6, static_cast<std::uint32_t>(text.size()),
                               static_cast<std::uint32_t>(fields.size())};
  std::string queue(reinterpret_cast<const char*>(&header), sizeof header);
  queue += text + fields + queue_of(7, 1);
  for (const auto encode : {log_for_journal, log_for_syslog}) {
    log_datagrams journal{path_.c_str(), encode};
    log_follower follower;
    follower.follow(journal);
    ASSERT_TRUE(follower.write(queue));
  }
  const auto lines = received();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_THAT(lines[0], EndsWith("OT_NUMBER=0x11eb0002\n" + fields));
  EXPECT_THAT(lines[1], EndsWith("OT_NUMBER=0x11eb0002\n"));
  EXPECT_THAT(lines[2], EndsWith(": OT-SERVICES-6-TRACK_INFO: one"));
  EXPECT_THAT(lines[3], EndsWith(": OT-SERVICES-6-TRACK_INFO: line 7"));
}

TEST_F(log_socket, the_system_log_gets_a_line) {
  log_datagrams syslog{path_.c_str(), log_for_syslog};
  log_follower follower;
  follower.follow(syslog);
  ASSERT_TRUE(follower.write(queue_of(7, 1)));
  const auto lines = received();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], StartsWith("<30>"));
  EXPECT_THAT(lines[0], EndsWith(" object_tracking: OT-SERVICES-6-TRACK_INFO: line 7"));
}

TEST_F(log_socket, an_unread_one_is_not_waited_for_and_goes_on_where_it_was) {
  log_datagrams syslog{path_.c_str(), log_for_syslog};
  log_follower follower;
  follower.follow(syslog);
  const std::string queue = queue_of(0, many);
  ASSERT_FALSE(follower.write(queue));
  ASSERT_FALSE(follower.write(queue));
  std::size_t count = 0;
  while (!follower.write(queue)) {
    count += received().size();
  }
  EXPECT_EQ(count + received().size(), static_cast<std::size_t>(many));
}

TEST_F(log_socket, one_that_missed_lines_learns_how_many) {
  log_datagrams syslog{path_.c_str(), log_for_syslog};
  log_follower follower;
  follower.follow(syslog);
  const std::string queue = queue_of(0, many);
  ASSERT_FALSE(follower.write(queue));
  follower.drop_rest(queue);
  follower.rewind();
  const std::size_t first = received().size();
  ASSERT_TRUE(follower.write(queue_of(many, 1)));
  const auto later = received();
  ASSERT_EQ(later.size(), 2U);
  EXPECT_THAT(later[0], EndsWith(std::to_string(static_cast<std::size_t>(many) - first) +
                                 " lines of the log were dropped: it was not read"));
  EXPECT_THAT(later[1], EndsWith("line " + std::to_string(many)));
}

TEST_F(log_socket, a_reader_that_was_started_again_is_found) {
  log_datagrams syslog{path_.c_str(), log_for_syslog};
  log_follower follower;
  follower.follow(syslog);
  ASSERT_TRUE(follower.write(queue_of(0, 1)));
  listen();
  follower.rewind();
  ASSERT_TRUE(follower.write(queue_of(1, 1)));
  const auto lines = received();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], EndsWith("line 1"));
}

}  // namespace
}  // namespace ot::testing
