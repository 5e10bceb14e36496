// What a policy's route is in the kernel's terms, and what the kernel's refusal is in words.
#pragma once

#include <optional>
#include <string>

#include "tools/trackpolicy/kernel/links.h"
#include "tools/trackpolicy/kernel/route.h"

namespace ot::trackpolicy {

// With the interface's index and the VRF's table; nothing when one of them is not there, which
// `ret_problem` says.
std::optional<kernel_route> meaning_of(const route& what, const link_table& links,
                                       std::string& ret_problem);

// Why the kernel refuses a route: an errno value, and what the kernel adds to it.
std::string refusal_text(int error, const std::string& kernel_text);

}  // namespace ot::trackpolicy
