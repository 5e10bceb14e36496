// Making and recognising labels. Every session gets a number of its own for each time it is asked
// for, so that a label never stands for two sessions, whatever the engine still has to say about
// the first.
#include "platform/linux/bfd/labels.h"

#include <sys/random.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/common/root_path.h"

namespace ot {
namespace {

constexpr std::size_t instance_digits = sizeof "ot-xxxxxxxx-" - 1;
constexpr std::size_t number_place = sizeof "ot-xxxxxxxx-xxxxxxxx-" - 1;

// FNV-1a.
std::uint32_t hash_of(std::string_view text) noexcept {
  std::uint32_t hash = 2166136261U;
  for (const char letter : text) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619U;
  }
  return hash;
}

}  // namespace

bfd_label bfd_labels::label(std::uint32_t number) const noexcept {
  char text[bfd_label::capacity];
  std::snprintf(text, sizeof text, "ot-%08x-%08x-%08x", instance_, run_, number);
  return bfd_label{text};
}

bool bfd_labels::own(const bfd_label& text) const noexcept {
  return text.view().substr(0, instance_digits) == label(0).view().substr(0, instance_digits);
}

std::optional<std::uint32_t> bfd_labels::number(const bfd_label& text) const noexcept {
  if (text.view().size() <= number_place) {
    return std::nullopt;
  }
  const auto number =
      static_cast<std::uint32_t>(std::strtoul(text.c_str() + number_place, nullptr, 16));
  return label(number) == text ? std::optional{number} : std::nullopt;
}

bfd_labels this_process_labels() {
  std::uint32_t run = 0;
  if (getrandom(&run, sizeof run, 0) != static_cast<ssize_t>(sizeof run)) {
    run = static_cast<std::uint32_t>(getpid());
  }
  return {hash_of(root_path("/")), run};
}

}  // namespace ot
