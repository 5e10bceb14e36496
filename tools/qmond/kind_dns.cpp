// DNS: asks the target itself one question over UDP; success is an answer that holds a record of
// the wanted type.
#include <sys/epoll.h>
#include <sys/random.h>

#include <array>
#include <cerrno>

#include "tools/qmond/dns_message.h"
#include "tools/qmond/probe_host.h"
#include "tools/qmond/probe_socket.h"

namespace ot::qmond {
namespace {

class dns_probe : public probe {
 public:
  dns_probe(sd_event* loop, unique_fd socket, std::vector<unsigned char> question, probe_done done)
      : socket_(std::move(socket)),
        question_(std::move(question)),
        done_(std::move(done)),
        source_(loop_source::descriptor(loop, socket_.get(), EPOLLIN,
                                        [this](std::uint32_t) { receive(); })) {}

 private:
  void receive() {
    std::array<unsigned char, 4096> answer;
    const ssize_t size = recv(socket_.get(), answer.data(), answer.size(), 0);
    if (size < 0) {
      if (errno != EAGAIN && errno != EINTR) {
        finish(code_of_errno(errno));
      }
      return;
    }
    const dns_verdict verdict =
        judge_answer(question_, {answer.data(), static_cast<std::size_t>(size)});
    if (verdict != dns_verdict::other) {
      finish(verdict == dns_verdict::good ? return_code::ok : return_code::bad_answer);
    }
  }

  void finish(return_code code) {
    const probe_done done = std::move(done_);
    done(code);
  }

  unique_fd socket_;
  std::vector<unsigned char> question_;
  probe_done done_;
  loop_source source_;
};

started failed(return_code code) {
  return {.running = nullptr, .code = code};
}

}  // namespace

started start_dns(probe_host& host, const operation& what, const address& where, probe_done done) {
  std::uint16_t id = 0;
  (void)getrandom(&id, sizeof id, GRND_NONBLOCK);  // a source port of its own guards it as well
  std::vector<unsigned char> question = dns_question(what.query, what.query_type, id);
  if (question.empty()) {
    return failed(return_code::cannot_run);
  }
  unique_fd socket;
  if (const int error = connect_socket(SOCK_DGRAM, what, where, &socket); error != 0) {
    return failed(code_of_errno(error));
  }
  if (send(socket.get(), question.data(), question.size(), MSG_NOSIGNAL) < 0) {
    return failed(code_of_errno(errno));
  }
  return {.running = std::make_unique<dns_probe>(host.loop, std::move(socket), std::move(question),
                                                 std::move(done)),
          .code = return_code::none};
}

}  // namespace ot::qmond
