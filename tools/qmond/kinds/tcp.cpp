// TCP connect: success is a connection, which is given up at once.
#include <sys/epoll.h>

#include <cerrno>

#include "tools/qmond/kinds/host.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {
namespace {

class tcp_probe : public probe {
 public:
  tcp_probe(sd_event* loop, unique_fd socket, probe_done done)
      : socket_(std::move(socket)),
        done_(std::move(done)),
        source_(loop_source::descriptor(loop, socket_.get(), EPOLLOUT,
                                        [this](std::uint32_t) { finish(); })) {}

 private:
  void finish() {
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
      error = errno;
    }
    const probe_done done = std::move(done_);
    done(error == 0 ? return_code::ok : code_of_errno(error));
  }

  unique_fd socket_;
  probe_done done_;
  loop_source source_;
};

started start(probe_host& host, const operation& what, const address& where, probe_done done) {
  unique_fd socket;
  if (const int error = connect_socket(SOCK_STREAM, what, where, &socket); error != 0) {
    return {.running = nullptr, .code = code_of_errno(error)};
  }
  return {.running = std::make_unique<tcp_probe>(host.loop, std::move(socket), std::move(done)),
          .code = return_code::none};
}

}  // namespace

constinit const kind tcp_kind{
    .id = kind_id::tcp,
    .word = "tcp",
    .keys = {},
    .target = [](const std::string& text) { return host_port_value(text, 0); },
    .start = start,
};

}  // namespace ot::qmond
