// Feeds arbitrary bytes to what judges DNS servers, as the rest of an answer to our question. One
// that does not even hold a record's fixed part cannot be good.
#include <arpa/nameser.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tools/qmond/kinds/dns.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<unsigned char> question =
      ot::qmond::dns_question("www.example.org", ns_t_a, 0x1234);
  std::vector<unsigned char> answer = question;
  answer[2] = 0x81;  // an answer, not cut
  answer[7] = size == 0 ? 0 : data[0] % 8;
  if (size > 0) {
    answer.insert(answer.end(), data + 1, data + size);
  }
  const ot::qmond::dns_verdict verdict = ot::qmond::judge_answer(question, answer);
  if (verdict == ot::qmond::dns_verdict::good && size < 1 + NS_RRFIXEDSZ) std::abort();
  return 0;
}
