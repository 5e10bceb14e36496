// The executable's own main, which serves the show command.
#include <algorithm>

#include "platform/memory/controls.h"
#include "platform/service.h"
#include "tests/unit/service_fixture.h"
#include "tests/unit/show/output.h"

namespace ot::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class front_end : public running_service {
 protected:
  void SetUp() override {
    running_service::SetUp();
    ASSERT_EQ(commit(interface_track("uplink", "Gi1")), 0);
    forget_output();
  }

  // What "object_tracking <words>" prints; it always ends with 0.
  static std::string run(std::vector<std::string> words) {
    words.insert(words.begin(), "object_tracking");
    std::vector<char*> argv(words.size() + 1);
    std::transform(words.begin(), words.end(), argv.begin(),
                   [](std::string& word) { return word.data(); });
    return printed([&] { EXPECT_EQ(ot::main(static_cast<int>(words.size()), argv.data()), 0); });
  }
};

TEST_F(front_end, serves_show_track) {
  EXPECT_THAT(run({"show", "track", "uplink", "all"}), StartsWith("\nTrack uplink "));
  EXPECT_THAT(run({"show", "track", "uplink"}), StartsWith("Track "));
}

TEST_F(front_end, does_nothing_for_other_words) {
  for (const std::vector<std::string>& words : {
           std::vector<std::string>{},
           {"track"},
           {"Show", "track", "uplink"},
           {"shows", "track", "uplink"},
           {"sho", "track", "uplink"},
           {"show"},
           {"show", "tracks", "uplink"},
           {"show", "Track", "uplink"},
           {"track", "show", "uplink"},
       }) {
    EXPECT_EQ(run(words), "") << testing::PrintToString(words);
  }
  EXPECT_THAT(field::take_messages(), IsEmpty());
}

TEST_F(front_end, without_trace_flags_the_process_ends_with_1) {
  field::fail_next("dbg_register", 5);
  char program[] = "object_tracking";
  char* argv[] = {program, nullptr};
  testing::internal::CaptureStderr();
  int status = -1;
  try {
    ot::main(1, argv);
  } catch (const process_exited& end) {
    status = end.status;
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "failed to setup init debug info!");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(field::take_messages(),
              ElementsAre("OT-SERVICES-3-INIT_FAIL: debug_register failed"));
}

}  // namespace
}  // namespace ot::test
