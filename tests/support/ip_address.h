// Addresses as text in tests.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>

namespace ot::test {

// Network byte order.
inline std::uint32_t ip(const char* text) {
  in_addr parsed{};
  EXPECT_EQ(inet_pton(AF_INET, text, &parsed), 1) << text;
  return parsed.s_addr;
}

}  // namespace ot::test
