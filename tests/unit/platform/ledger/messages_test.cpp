// The ledger's messages: what is written is read back, and nothing that a peer can send is read
// past its end.
#include "platform/ledger/messages.h"

#include <gtest/gtest.h>

#include <functional>

#include "platform/component_status.h"
#include "tests/support/ledger_proposals.h"

namespace ot::test {
namespace {

TEST(ledger_messages, proposals_come_back) {
  const std::vector<ledger_proposal> sent = {set_number("/cfg/a", 7), set_text("/cfg/b", "text"),
                                             remove_item("/cfg/c")};
  ledger_writer writer;
  ledger_put_proposals(writer, sent);
  ledger_reader reader{writer.data()};
  const std::vector<ledger_proposal> got = ledger_take_proposals(reader);
  ASSERT_TRUE(reader.finished());
  ASSERT_EQ(got.size(), sent.size());
  for (std::size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(got[i].path, sent[i].path);
    EXPECT_EQ(got[i].remove, sent[i].remove);
    EXPECT_EQ(got[i].kind, sent[i].kind);
    EXPECT_EQ(got[i].value, sent[i].value);
  }
}

TEST(ledger_messages, refusals_come_back) {
  const ledger_refusal sent{
      .path = "/cfg/a", .code = too_many_tracks, .text = "no", .applied = true};
  ledger_writer writer;
  ledger_put_refusals(writer, {&sent, 1});
  ledger_reader reader{writer.data()};
  const std::vector<ledger_refusal> got = ledger_take_refusals(reader);
  ASSERT_TRUE(reader.finished());
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].path, sent.path);
  EXPECT_EQ(got[0].code, sent.code);
  EXPECT_EQ(got[0].text, sent.text);
  EXPECT_TRUE(got[0].applied);
}

TEST(ledger_messages, notices_come_back) {
  const ledger_notices sent = {{.resync = true, .path = {}},
                               {.path = "t", .kind = ledger_notification_delete, .value = 9}};
  ledger_writer writer;
  ledger_put_notices(writer, sent);
  ledger_reader reader{writer.data()};
  const ledger_notices got = ledger_take_notices(reader);
  ASSERT_TRUE(reader.finished());
  ASSERT_EQ(got.size(), 2U);
  EXPECT_TRUE(got[0].resync);
  EXPECT_EQ(got[1].path, "t");
  EXPECT_EQ(got[1].kind, ledger_notification_delete);
  EXPECT_EQ(got[1].value, 9U);
}

ledger_page sample_page() {
  ledger_page page;
  page.has_continuation = true;
  page.continuation = "last";
  page.entries = {{.name = "first", .data_kind = 7, .data = bytes_of("abc")},
                  {.name = "last", .data_kind = 7, .data = {}}};
  return page;
}

// Every shorter form of a message, and every form with a byte turned over, is read to a harmless
// end; the shorter ones are never taken for whole.
void feed_damaged(const ledger_writer& writer, const std::function<bool(ledger_reader&)>& read) {
  const std::vector<std::byte> whole{writer.data().begin(), writer.data().end()};
  for (std::size_t length = 0; length < whole.size(); ++length) {
    // A heap block of just this length, so that a sanitizer sees a look past it.
    const std::vector<std::byte> cut{whole.begin(),
                                     whole.begin() + static_cast<std::ptrdiff_t>(length)};
    ledger_reader reader{cut};
    EXPECT_FALSE(read(reader)) << length;
    std::vector<std::byte> turned = whole;
    turned[length] ^= std::byte{0xff};
    ledger_reader damaged{turned};
    read(damaged);
  }
}

TEST(ledger_messages, damaged_messages_are_harmless) {
  ledger_writer proposals;
  const std::vector<ledger_proposal> changes = {set_text("/cfg/b", "text"), remove_item("/cfg/c")};
  ledger_put_proposals(proposals, changes);
  feed_damaged(proposals, [](ledger_reader& reader) {
    ledger_take_proposals(reader);
    return reader.finished();
  });
  ledger_writer page;
  ledger_put_page(page, sample_page());
  feed_damaged(page, [](ledger_reader& reader) {
    ledger_page taken;
    ledger_take_page(reader, taken);
    return reader.finished();
  });
  ledger_writer query;
  ledger_put_query(query, {.path = "/oper/x", .marker = "m", .page_size = 3, .values = true});
  feed_damaged(query, [](ledger_reader& reader) {
    ledger_take_query(reader);
    return reader.finished();
  });
}

TEST(ledger_messages, a_count_is_no_reason_to_allocate) {
  ledger_writer writer;
  writer.u32(0xffffffff);
  ledger_reader reader{writer.data()};
  EXPECT_TRUE(ledger_take_proposals(reader).empty());
  EXPECT_FALSE(reader.ok());
  ledger_reader again{writer.data()};
  EXPECT_TRUE(ledger_take_notices(again).empty());
  EXPECT_FALSE(again.ok());
}

TEST(ledger_messages, leftover_bytes_are_noticed) {
  ledger_writer writer;
  writer.text("/oper/x");
  writer.u8(0);
  ledger_reader reader{writer.data()};
  EXPECT_EQ(reader.text(), "/oper/x");
  EXPECT_TRUE(reader.ok());
  EXPECT_FALSE(reader.finished());
}

}  // namespace
}  // namespace ot::test
