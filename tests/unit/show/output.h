// What a function prints to standard output, with times printed in UTC.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace ot::test {

template <typename Print>
std::string printed(Print&& print) {
  setenv("TZ", "UTC", 1);
  tzset();
  std::fflush(stdout);
  testing::internal::CaptureStdout();
  print();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

}  // namespace ot::test
