#include "platform/linux/bfd/frr_control/session_labels.h"

#include <sys/random.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "platform/linux/bfd/instance.h"

namespace ot::bfd {
namespace {

constexpr std::size_t instance_digits = sizeof "ot-xxxxxxxx-" - 1;
constexpr std::size_t number_place = sizeof "ot-xxxxxxxx-xxxxxxxx-" - 1;

}  // namespace

session_label session_labels::label(std::uint32_t number) const noexcept {
  char text[session_label::capacity];
  std::snprintf(text, sizeof text, "ot-%08x-%08x-%08x", instance_, run_, number);
  return session_label{text};
}

bool session_labels::own(const session_label& text) const noexcept {
  return text.view().substr(0, instance_digits) == label(0).view().substr(0, instance_digits);
}

std::optional<std::uint32_t> session_labels::number(const session_label& text) const noexcept {
  if (text.view().size() <= number_place) {
    return std::nullopt;
  }
  const auto number =
      static_cast<std::uint32_t>(std::strtoul(text.c_str() + number_place, nullptr, 16));
  return label(number) == text ? std::optional{number} : std::nullopt;
}

session_labels this_process_labels() {
  std::uint32_t run = 0;
  if (getrandom(&run, sizeof run, 0) != static_cast<ssize_t>(sizeof run)) {
    run = static_cast<std::uint32_t>(getpid());
  }
  return {instance_number(), run};
}

}  // namespace ot::bfd
