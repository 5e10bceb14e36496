// Reading answers: whatever comes behind the text must be the end of an answer as far as it goes.
#include "platform/linux/bfd/frr_vty/answer.h"

#include <algorithm>

namespace ot::bfd::vty {
namespace {

constexpr std::string_view text_end{"\0\0\0", 3};

}  // namespace

answer_reader::found answer_reader::take(std::string_view bytes) {
  if (bytes_.size() + bytes.size() > answer_limit) {
    return found::broken;
  }
  bytes_.append(bytes);
  end_ = std::min(bytes_.find('\0', end_), bytes_.size());
  const std::string_view rest = std::string_view{bytes_}.substr(end_);
  if (rest.substr(0, text_end.size()) != text_end.substr(0, rest.size()) ||
      rest.size() > text_end.size() + 1) {
    return found::broken;
  }
  if (rest.size() <= text_end.size()) {
    return found::nothing;
  }
  code_ = static_cast<std::uint8_t>(rest.back());
  return found::answer;
}

}  // namespace ot::bfd::vty
