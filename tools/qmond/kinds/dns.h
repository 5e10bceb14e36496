// The two DNS messages of a probe: our question (dns_question of cares.h), and whether what came
// answers it.
#pragma once

#include <span>

#include "tools/qmond/cares.h"

namespace ot::qmond {

enum class dns_verdict {
  other,  // not an answer to this question: another id, name, type or class
  good,   // holds a record of the type that was asked for, of the name or of what it is an alias of
  bad,    // an error, no such record, or nonsense
};

dns_verdict judge_answer(std::span<const unsigned char> question,
                         std::span<const unsigned char> answer);

}  // namespace ot::qmond
