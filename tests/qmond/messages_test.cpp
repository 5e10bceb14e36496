// The packets that probes send and judge: ICMP echo and DNS.
#include <arpa/nameser.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tools/qmond/kinds/dns.h"
#include "tools/qmond/kinds/icmp.h"

namespace ot::qmond {
namespace {

using bytes = std::vector<unsigned char>;

TEST(icmp_packet, a_request_is_parsed_as_what_it_is) {
  for (const int family : {AF_INET, AF_INET6}) {
    const auto packet = echo_request(family, 0x1234, 0xfedc, 0x0102030405060708, 8);
    ASSERT_EQ(packet.size(), 16U);
    const auto echo = parse_echo(family, packet);
    ASSERT_TRUE(echo);
    EXPECT_FALSE(echo->reply);
    EXPECT_EQ(echo->id, 0x1234);
    EXPECT_EQ(echo->sequence, 0xfedc);
    EXPECT_EQ(echo_token(packet), 0x0102030405060708U);
  }
}

// As RFC 1071 has it: with its checksum in it the packet sums up to all ones.
TEST(icmp_packet, an_ipv4_request_carries_its_checksum) {
  for (const std::size_t payload : {8U, 9U, 56U, 1473U}) {
    const auto packet = echo_request(AF_INET, 0x1234, 7, 0xdeadbeef12345678, payload);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < packet.size(); ++i) {
      sum += std::to_integer<std::uint32_t>(packet[i]) << (i % 2 == 0 ? 8 : 0);
    }
    while (sum >> 16 != 0) {
      sum = (sum & 0xffff) + (sum >> 16);
    }
    EXPECT_EQ(sum, 0xffffU) << payload;
  }
}

TEST(icmp_packet, other_packets_are_none) {
  const std::vector<std::byte> unreachable(16, std::byte{3});
  EXPECT_FALSE(parse_echo(AF_INET, unreachable));
  EXPECT_FALSE(parse_echo(AF_INET, std::span(unreachable).first(7)));
  EXPECT_EQ(echo_token(std::span(unreachable).first(15)), 0U);
}

TEST(icmp_packet, the_ipv4_header_is_skipped_only_when_it_is_whole) {
  std::vector<std::byte> packet(40, std::byte{0});
  packet[0] = std::byte{0x46};  // 24 bytes
  EXPECT_EQ(behind_ipv4_header(packet).size(), 16U);
  packet[0] = std::byte{0x4f};  // 60 bytes
  EXPECT_TRUE(behind_ipv4_header(packet).empty());
  packet[0] = std::byte{0x44};
  EXPECT_TRUE(behind_ipv4_header(packet).empty());
  EXPECT_TRUE(behind_ipv4_header({}).empty());
}

class dns_message : public testing::Test {
 protected:
  // The question as a server sends it back, with these flags and counts.
  [[nodiscard]] bytes reply(unsigned char flags_high, unsigned char flags_low,
                            unsigned char answers) const {
    bytes made = question_;
    made[2] = flags_high;
    made[3] = flags_low;
    made[7] = answers;
    return made;
  }
  // The owner's name as it stands in the message; by default that of the question.
  static void add_record(bytes& message, unsigned char type, unsigned char of_class = ns_c_in,
                         const bytes& owner = {0xc0, 12}, const bytes& data = {192, 0, 2, 1}) {
    const bytes fixed{0, type, 0,  of_class, 0,
                      0, 0,    60, 0,        static_cast<unsigned char>(data.size())};
    for (const bytes& part : {owner, fixed, data}) {
      message.insert(message.end(), part.begin(), part.end());
    }
  }
  // The answer to another question, otherwise as good as ours.
  static bytes answer_to(bytes question) {
    question[2] = 0x81;
    question[7] = 1;
    add_record(question, ns_t_a);
    return question;
  }

  bytes question_ = dns_question("www.example.org", ns_t_a, 0x1234);
};

TEST_F(dns_message, asks_for_one_name) {
  ns_msg parsed;
  ASSERT_EQ(ns_initparse(question_.data(), static_cast<int>(question_.size()), &parsed), 0);
  EXPECT_EQ(ns_msg_id(parsed), 0x1234);
  EXPECT_EQ(ns_msg_count(parsed, ns_s_qd), 1);
  EXPECT_TRUE(dns_question(std::string(300, 'a'), ns_t_a, 1).empty());
}

TEST_F(dns_message, an_answer_with_a_record_of_the_type_is_good) {
  bytes answer = reply(0x81, 0x80, 1);
  add_record(answer, ns_t_a);
  EXPECT_EQ(judge_answer(question_, answer), dns_verdict::good);
}

TEST_F(dns_message, an_answer_that_was_cut_is_good) {
  EXPECT_EQ(judge_answer(question_, reply(0x83, 0x80, 0)), dns_verdict::good);
}

TEST_F(dns_message, everything_else_to_this_question_is_bad) {
  EXPECT_EQ(judge_answer(question_, question_), dns_verdict::bad) << "no answer at all";
  EXPECT_EQ(judge_answer(question_, reply(0x81, 0x80, 0)), dns_verdict::bad) << "no record";
  EXPECT_EQ(judge_answer(question_, reply(0x81, 0x83, 0)), dns_verdict::bad) << "no such name";
  EXPECT_EQ(judge_answer(question_, reply(0x81, 0x80, 1)), dns_verdict::bad) << "cut off";
  bytes other_type = reply(0x81, 0x80, 1);
  add_record(other_type, ns_t_ns);
  EXPECT_EQ(judge_answer(question_, other_type), dns_verdict::bad);
  EXPECT_EQ(judge_answer(question_, bytes{0x12, 0x34, 'x'}), dns_verdict::bad);
}

TEST_F(dns_message, a_record_of_another_name_or_class_is_none) {
  const bytes other{5, 'o', 't', 'h', 'e', 'r', 0};
  bytes other_name = reply(0x81, 0x80, 1);
  add_record(other_name, ns_t_a, ns_c_in, other);
  EXPECT_EQ(judge_answer(question_, other_name), dns_verdict::bad);
  bytes other_class = reply(0x81, 0x80, 1);
  add_record(other_class, ns_t_a, ns_c_chaos);
  EXPECT_EQ(judge_answer(question_, other_class), dns_verdict::bad);
}

TEST_F(dns_message, a_record_of_what_the_name_is_an_alias_of_is_good) {
  const bytes other{5, 'o', 't', 'h', 'e', 'r', 0};
  bytes answer = reply(0x81, 0x80, 2);
  bytes turned = answer;
  bytes alias_only = reply(0x81, 0x80, 1);
  add_record(answer, ns_t_cname, ns_c_in, {0xc0, 12}, other);
  add_record(answer, ns_t_a, ns_c_in, other);
  EXPECT_EQ(judge_answer(question_, answer), dns_verdict::good);
  add_record(turned, ns_t_a, ns_c_in, other);
  add_record(turned, ns_t_cname, ns_c_in, {0xc0, 12}, other);
  EXPECT_EQ(judge_answer(question_, turned), dns_verdict::good) << "in any order";
  add_record(alias_only, ns_t_cname, ns_c_in, {0xc0, 12}, other);
  EXPECT_EQ(judge_answer(question_, alias_only), dns_verdict::bad);
}

TEST_F(dns_message, aliases_in_a_circle_lead_nowhere) {
  bytes answer = reply(0x81, 0x80, 1);
  add_record(answer, ns_t_cname, ns_c_in, {0xc0, 12}, {0xc0, 12});
  EXPECT_EQ(judge_answer(question_, answer), dns_verdict::bad);
}

TEST_F(dns_message, an_answer_to_another_question_is_none_to_ours) {
  EXPECT_EQ(judge_answer(question_, answer_to(question_)), dns_verdict::good);
  EXPECT_EQ(judge_answer(question_, answer_to(dns_question("www.example.com", ns_t_a, 0x1234))),
            dns_verdict::other);
  EXPECT_EQ(judge_answer(question_, answer_to(dns_question("www.example.org", ns_t_mx, 0x1234))),
            dns_verdict::other);
  bytes other_class = question_;
  other_class.back() = ns_c_chaos;
  EXPECT_EQ(judge_answer(question_, answer_to(other_class)), dns_verdict::other);
  EXPECT_EQ(judge_answer(question_, answer_to(dns_question("WWW.example.ORG", ns_t_a, 0x1234))),
            dns_verdict::good)
      << "case does not matter";
}

TEST_F(dns_message, what_has_another_id_is_not_for_this_question) {
  bytes answer = reply(0x81, 0x80, 0);
  answer[1] ^= 1;
  EXPECT_EQ(judge_answer(question_, answer), dns_verdict::other);
  EXPECT_EQ(judge_answer(question_, {}), dns_verdict::other);
}

}  // namespace
}  // namespace ot::qmond
