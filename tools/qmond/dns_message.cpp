// DNS messages by way of the libraries that know them: c-ares writes, the C library's parser reads.
#include "tools/qmond/dns_message.h"

#include <ares.h>
#include <arpa/nameser.h>

#include <strings.h>
#include <cstring>

namespace ot::qmond {
namespace {

// Whether the answer repeats the question.
bool same_question(ns_msg& question, ns_msg& answer) noexcept {
  ns_rr asked;
  ns_rr repeated;
  return ns_parserr(&question, ns_s_qd, 0, &asked) == 0 &&
         ns_parserr(&answer, ns_s_qd, 0, &repeated) == 0 &&
         ns_rr_type(asked) == ns_rr_type(repeated) &&
         strcasecmp(ns_rr_name(asked), ns_rr_name(repeated)) == 0;
}

bool holds_type(ns_msg& answer, unsigned type) noexcept {
  for (int i = 0; i < ns_msg_count(answer, ns_s_an); ++i) {
    ns_rr record;
    if (ns_parserr(&answer, ns_s_an, i, &record) == 0 && ns_rr_type(record) == type) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::vector<unsigned char> dns_question(const std::string& name, std::uint16_t type,
                                        std::uint16_t id) {
  unsigned char* bytes = nullptr;
  int length = 0;
  if (ares_create_query(name.c_str(), ns_c_in, type, id, 1, &bytes, &length, 0) != ARES_SUCCESS) {
    return {};
  }
  std::vector<unsigned char> question(bytes, bytes + length);
  ares_free_string(bytes);
  return question;
}

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
  const bool answers = ns_msg_getflag(got, ns_f_qr) == 1 &&
                       ns_msg_getflag(got, ns_f_rcode) == ns_r_noerror &&
                       same_question(asked, got) && ns_parserr(&asked, ns_s_qd, 0, &wanted) == 0;
  // An answer that was too long for its packet shows as well that the server answers.
  const bool good =
      answers && (ns_msg_getflag(got, ns_f_tc) == 1 || holds_type(got, ns_rr_type(wanted)));
  return good ? dns_verdict::good : dns_verdict::bad;
}

}  // namespace ot::qmond
