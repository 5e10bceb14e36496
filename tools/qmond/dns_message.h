// The two DNS messages of a probe: our question, and whether what came answers it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ot::qmond {

// A recursive query; empty when the name cannot be put into one.
std::vector<unsigned char> dns_question(const std::string& name, std::uint16_t type,
                                        std::uint16_t id);

enum class dns_verdict {
  other,  // not an answer to this question
  good,   // holds a record of the type that was asked for
  bad,    // an error, no such record, or nonsense
};

dns_verdict judge_answer(std::span<const unsigned char> question,
                         std::span<const unsigned char> answer);

}  // namespace ot::qmond
