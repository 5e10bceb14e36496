// The bounded queue of a reader's notices.
#include "platform/ledger/engine/backlog.h"

#include <gtest/gtest.h>

#include <string>

namespace ot {
namespace {

ledger_dpv_notification entry(std::string& path, std::uint32_t kind, std::uint32_t* value) {
  ledger_dpv_notification made{.path = path.data(), .kind = kind, .valid = 1};
  (kind == ledger_notification_delete ? made.old_value : made.new_value) = value;
  return made;
}

TEST(ledger_notices, only_what_is_followed_comes) {
  std::string x = "a/x";
  std::string y = "b/y";
  std::uint32_t up = 1;
  std::uint32_t gone = 2;
  ledger_dpv_notification entries[] = {entry(x, ledger_notification_set, &up),
                                       entry(y, ledger_notification_delete, &gone),
                                       entry(x, ledger_notification_set, nullptr)};
  entries[2].valid = 0;
  const ledger_notices all = ledger_notices_below("/oper/", "/oper/gl/", entries);
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].path, "gl/a/x");
  EXPECT_EQ(all[0].value, 1U);
  EXPECT_EQ(all[1].kind, ledger_notification_delete);
  EXPECT_EQ(all[1].value, 2U) << "the value that it had";
  const ledger_notices some = ledger_notices_below("/oper/gl/b/", "/oper/gl/", entries);
  ASSERT_EQ(some.size(), 1U);
  EXPECT_EQ(some[0].path, "y");
  EXPECT_TRUE(ledger_notices_below("/oper/other/", "/oper/gl/", entries).empty());
}

shared_notices batch_of(std::size_t count) {
  return std::make_shared<const ledger_notices>(
      count, ledger_notice{.path = "t", .kind = ledger_notification_set});
}

TEST(ledger_notices, of_a_batch_are_made_once_for_a_path) {
  std::string x = "a/x";
  std::uint32_t up = 1;
  const ledger_dpv_notification entries[] = {entry(x, ledger_notification_set, &up)};
  ledger_notice_batch batch{"/oper/gl/", entries};
  const shared_notices first = batch.below("/oper/");
  EXPECT_EQ(first->size(), 1U);
  EXPECT_EQ(batch.below("/oper/"), first);
  EXPECT_EQ(batch.below("/oper/gl/a/")->at(0).path, "x");
  EXPECT_TRUE(batch.below("/oper/gl/b/")->empty());
}

TEST(ledger_backlog, batches_leave_in_order) {
  ledger_backlog backlog;
  backlog.push(batch_of(1));
  backlog.push(batch_of(0));
  backlog.push(batch_of(2));
  EXPECT_EQ(backlog.pop().size(), 1U);
  EXPECT_EQ(backlog.pop().size(), 2U);
  EXPECT_TRUE(backlog.empty());
  EXPECT_TRUE(backlog.pop().empty());
}

TEST(ledger_backlog, one_resync_replaces_what_does_not_fit) {
  ledger_backlog backlog;
  for (std::size_t i = 0; i < ledger_backlog::max_batches; ++i) {
    backlog.push(batch_of(1));
  }
  backlog.push(batch_of(1));
  ledger_notices left = backlog.pop();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_TRUE(left[0].resync);
  EXPECT_TRUE(backlog.empty());
  backlog.push(batch_of(3));
  EXPECT_EQ(backlog.pop().size(), 3U);
}

TEST(ledger_backlog, notices_are_bounded_too) {
  ledger_backlog backlog;
  backlog.push(batch_of(ledger_backlog::max_notices));
  backlog.push(batch_of(1));
  EXPECT_TRUE(backlog.pop().at(0).resync);
  EXPECT_TRUE(backlog.empty());
  backlog.push(batch_of(ledger_backlog::max_notices));
  EXPECT_EQ(backlog.pop().size(), ledger_backlog::max_notices) << "the room is there again";
}

}  // namespace
}  // namespace ot
