// DNS: asks the target itself one question over UDP; success is an answer that holds a record of
// the wanted type. Messages are written by c-ares and read by the C library's parser.
#include "tools/qmond/kinds/dns.h"

#include <arpa/nameser.h>
#include <strings.h>
#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/qmond/kinds/chance.h"
#include "tools/qmond/kinds/host.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {
namespace {

constexpr std::uint16_t dns_port = 53;

// The message's question; false when it has none.
bool question_of(ns_msg& message, ns_rr* ret) noexcept {
  return ns_parserr(&message, ns_s_qd, 0, ret) == 0;
}

bool same_name(const char* a, const char* b) noexcept {
  return strcasecmp(a, b) == 0;
}

bool same_question(const ns_rr& a, const ns_rr& b) noexcept {
  return ns_rr_type(a) == ns_rr_type(b) && ns_rr_class(a) == ns_rr_class(b) &&
         same_name(ns_rr_name(a), ns_rr_name(b));
}

// The name that an alias stands for; false when it is no whole one.
bool alias_target(const ns_msg& message, const ns_rr& alias,
                  std::array<char, NS_MAXDNAME>* ret) noexcept {
  return ns_name_uncompress(ns_msg_base(message), ns_msg_end(message), ns_rr_rdata(alias),
                            ret->data(), ret->size()) >= 0;
}

// What the answer says of one name: a record of the type and class that were asked for, an alias
// (then `name` becomes what it stands for), or nothing.
enum class found { record, alias, nothing };
found look_for(ns_msg& answer, const ns_rr& asked, std::array<char, NS_MAXDNAME>* name) noexcept {
  for (int i = 0; i < ns_msg_count(answer, ns_s_an); ++i) {
    ns_rr record;
    if (ns_parserr(&answer, ns_s_an, i, &record) != 0 ||
        ns_rr_class(record) != ns_rr_class(asked) || !same_name(ns_rr_name(record), name->data())) {
      continue;
    }
    if (ns_rr_type(record) == ns_rr_type(asked)) {
      return found::record;
    }
    if (ns_rr_type(record) == ns_t_cname && alias_target(answer, record, name)) {
      return found::alias;
    }
  }
  return found::nothing;
}

// Whether the answer holds what was asked for, of the name itself or of one that it is an alias of.
bool holds_record(ns_msg& answer, const ns_rr& asked) noexcept {
  constexpr int aliases_max = 16;  // also ends a circle
  std::array<char, NS_MAXDNAME> name{};
  std::snprintf(name.data(), name.size(), "%s", ns_rr_name(asked));
  found last = found::alias;
  for (int i = 0; i <= aliases_max && last == found::alias; ++i) {
    last = look_for(answer, asked, &name);
  }
  return last == found::record;
}

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

started start(probe_host& host, const operation& what, const address& where, probe_done done) {
  std::uint16_t id = 0;
  fill_by_chance(&id);  // the source port is random as well
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

std::uint16_t query_type_value(const toml::node& node) {
  constexpr std::array types{std::pair{"A", 1},   std::pair{"NS", 2},   std::pair{"SOA", 6},
                             std::pair{"MX", 15}, std::pair{"TXT", 16}, std::pair{"AAAA", 28}};
  const std::string wanted = text_value(node);
  for (const auto& [name, number] : types) {
    if (wanted == name) {
      return static_cast<std::uint16_t>(number);
    }
  }
  throw value_error("must be A, AAAA, MX, NS, SOA or TXT");
}

std::string query_value(const toml::node& node) {
  return host_value(text_value(node));
}

constexpr std::array own_keys{
    key_row{"query", take_value<&operation::query, query_value>, key_required},
    key_row{"type", take_value<&operation::query_type, query_type_value>},
};

}  // namespace

constinit const kind dns_kind{
    .id = kind_id::dns,
    .word = "dns",
    .keys = own_keys,
    .target = [](const std::string& text) { return host_port_value(text, dns_port); },
    .start = start,
};

dns_verdict judge_answer(std::span<const unsigned char> question,
                         std::span<const unsigned char> answer) {
  if (answer.size() < 2 || std::memcmp(question.data(), answer.data(), 2) != 0) {
    return dns_verdict::other;  // another id: late, or forged
  }
  ns_msg asked;
  ns_msg got;
  if (ns_initparse(question.data(), static_cast<int>(question.size()), &asked) != 0 ||
      ns_initparse(answer.data(), static_cast<int>(answer.size()), &got) != 0) {
    return dns_verdict::bad;
  }
  ns_rr wanted;
  ns_rr repeated;
  const bool repeats = question_of(got, &repeated);
  if (!question_of(asked, &wanted) || (repeats && !same_question(wanted, repeated))) {
    return dns_verdict::other;  // of another name, type or class
  }
  const bool answers = repeats && ns_msg_getflag(got, ns_f_qr) == 1 &&
                       ns_msg_getflag(got, ns_f_rcode) == ns_r_noerror;
  // An answer that was too long for its packet shows as well that the server answers.
  const bool good = answers && (ns_msg_getflag(got, ns_f_tc) == 1 || holds_record(got, wanted));
  return good ? dns_verdict::good : dns_verdict::bad;
}

}  // namespace ot::qmond
