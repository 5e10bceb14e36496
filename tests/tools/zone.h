// A time zone for the length of a test.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace ot::trackctl {

class test_zone {
 public:
  explicit test_zone(const char* zone) {
    if (const char* const before = std::getenv("TZ")) {
      before_ = before;
    }
    setenv("TZ", zone, 1);
    tzset();
  }
  ~test_zone() {
    before_ ? setenv("TZ", before_->c_str(), 1) : unsetenv("TZ");
    tzset();
  }
  test_zone(const test_zone&) = delete;
  test_zone& operator=(const test_zone&) = delete;

 private:
  std::optional<std::string> before_;
};

}  // namespace ot::trackctl
