// Registration: which descriptors are taken, which are refused, and what the bracket around them
// does.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/brec.h"
#include "platform/memory/alloc_faults.h"
#include "platform/status.h"
#include "tests/unit/platform/records/samples.h"

namespace ot {
namespace {

using samples::encoded;

class brec_registry : public testing::Test {
 protected:
  void SetUp() override { brec_forget_all(); }
  void TearDown() override { brec_forget_all(); }
};

struct one__ {
  std::uint32_t value;
};
constexpr brec_descriptor one_brec = {1,      "one__", "lib", {}, sizeof(one__), "$1={value}D;",
                                      "$1=D;"};

int register_one(const brec_descriptor& type) {
  int status = brec_register_start();
  if (status == 0) status = brec_register(type);
  const int ended = brec_register_end();
  return status != 0 ? status : ended;
}

TEST_F(brec_registry, needs_its_bracket) {
  EXPECT_EQ(brec_register(one_brec), invalid_argument);
  EXPECT_EQ(brec_register_end(), invalid_argument);
  EXPECT_EQ(brec_register_start(), 0);
  EXPECT_EQ(brec_register_start(), invalid_argument);
  EXPECT_EQ(brec_register(one_brec), 0);
  EXPECT_EQ(brec_register_end(), 0);
  EXPECT_EQ(brec_register_end(), invalid_argument);
}

TEST_F(brec_registry, takes_a_name_once) {
  ASSERT_EQ(brec_register_start(), 0);
  EXPECT_EQ(brec_register(one_brec), 0);
  EXPECT_EQ(brec_register(one_brec), duplicate_key);
  const brec_descriptor same_name = {2, "one__", "lib", {}, 8, "$1={value}H;", "$1=H;"};
  EXPECT_EQ(brec_register(same_name), duplicate_key);
  EXPECT_EQ(brec_register_end(), 0);
}

TEST_F(brec_registry, abort_forgets_what_came_since_the_start) {
  static constexpr brec_descriptor two_brec = {1, "two__", "lib", {}, 4, "$1={v}D;", "$1=D;"};
  ASSERT_EQ(register_one(one_brec), 0);
  ASSERT_EQ(brec_register_start(), 0);
  ASSERT_EQ(brec_register(two_brec), 0);
  brec_register_abort();
  const one__ record{7};
  int status = 0;
  EXPECT_FALSE(encoded(one_brec, &record, &status).empty());
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(encoded(two_brec, &record, &status).empty());
  EXPECT_EQ(status, record_unknown_type);
  EXPECT_EQ(register_one(two_brec), 0);
}

struct refused_row {
  const char* why;
  std::size_t size;
  const char* full;
  const char* brief;
};

TEST_F(brec_registry, refuses_improper_strings) {
  const refused_row rows[] = {
      {"empty", 4, "", ""},
      {"no types", 4, "x", "x"},
      {"size too small", 4, "$1={a}D{b}D;", "$1=DD;"},
      {"size too large", 12, "$1={a}D{b}D;", "$1=DD;"},
      {"padding forgotten", 12, "$1={a}D{b}H;", "$1=DH;"},
      {"strings differ", 4, "$1={a}D;", "$1=e;"},
      {"strings differ in number", 4, "$1={a}D;", "$2=D;"},
      {"brief has more", 4, "$1={a}D;", "$1=DD;"},
      {"type without fields", 0, "$1=;", "$1=;"},
      {"unfinished type", 4, "$1={a}D", "$1=D"},
      {"number missing", 4, "$={a}D;", "$=D;"},
      {"number zero", 4, "$0={a}D;", "$0=D;"},
      {"number too large", 4, "$99999={a}D;", "$99999=D;"},
      {"type defined twice", 4, "$1={a}D;$1={a}D;", "$1=D;$1=D;"},
      {"undefined type in place", 4, "$1={a}$2;", "$1=$2.;"},
      {"undefined type behind a pointer", 8, "$1={a}p($2);", "$1=p($2);"},
      {"contains itself", 4, "$1={a}$1;", "$1=$1.;"},
      {"contain each other", 4, "$1={a}$2;$2={a}$1;", "$1=$2.;$2=$1.;"},
      {"nameless field", 4, "$1=D;", "$1=D;"},
      {"empty name", 4, "$1={}D;", "$1=D;"},
      {"name in the brief form", 4, "$1={a}D;", "$1={a}D;"},
      {"nameless enumeration", 4, "$1={a}e;", "$1=e;"},
      {"dot in the full form", 4, "$1={a}$2.;$2={b}D;", "$1=$2.;$2=D;"},
      {"no dot in the brief form", 4, "$1={a}$2;$2={b}D;", "$1=$2;$2=D;"},
      {"text without width", 1, "$1={a}x%S;", "$1=x%S;"},
      {"text of width 0", 1, "$1={a}0x%S;", "$1=0x%S;"},
      {"text too wide", 70000, "$1={a}70000x%S;", "$1=70000x%S;"},
      {"unknown field", 4, "$1={a}Q;", "$1=Q;"},
      {"open pointer", 8, "$1={a}p(D;", "$1=p(D;"},
      {"pointers without end", 8, "$1={a}p(p(p(p(p(p(D))))));", "$1=p(p(p(p(p(p(D))))));"},
      {"link to another type", 16, "$1=L{n}p($2){a}D;$2={b}D;", "$1=Lp($2)D;$2=D;"},
      {"two links", 24, "$1=L{n}p($1)L{m}p($1){a}D;", "$1=Lp($1)Lp($1)D;"},
      {"nothing but a link", 8, "$1=L{n}p($1);", "$1=Lp($1);"},
      {"sequence in place", 16, "$1={a}$2;$2=L{n}p($2){b}D;", "$1=$2.;$2=Lp($2)D;"},
      {"union without names", 8, "$1=?(,1:{a}D,?:v);", "$1=?(,1:D,?:v);"},
      {"union code twice", 8, "$1=?(<d,e>,1:{a}D,1:{b}D,?:v);", "$1=?(,1:D,1:D,?:v);"},
      {"union without arms", 4, "$1=?(<d,e>,?:v);", "$1=?(,?:v);"},
      {"arm after the default", 8, "$1=?(<d,e>,?:v,1:{a}D);", "$1=?(,?:v,1:D);"},
      {"arm without code", 8, "$1=?(<d,e>,:{a}D,?:v);", "$1=?(,:D,?:v);"},
  };
  for (const refused_row& row : rows) {
    const brec_descriptor type = {1, "bad__", "lib", {}, row.size, row.full, row.brief};
    EXPECT_EQ(register_one(type), record_bad_descriptor) << row.why;
  }
}

TEST_F(brec_registry, refuses_improper_names) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "__", "one", "one_"}) {
    const brec_descriptor type = {1, name, "lib", {}, 4, "$1={value}D;", "$1=D;"};
    EXPECT_EQ(register_one(type), record_bad_descriptor) << (name == nullptr ? "(null)" : name);
  }
  const brec_descriptor no_full = {1, "one__", "lib", {}, 4, nullptr, "$1=D;"};
  EXPECT_EQ(register_one(no_full), record_bad_descriptor);
  const brec_descriptor no_brief = {1, "one__", "lib", {}, 4, "$1={value}D;", nullptr};
  EXPECT_EQ(register_one(no_brief), record_bad_descriptor);
}

// A contained type has to be registered before, under its number, with the same text.
TEST_F(brec_registry, checks_contained_types) {
  const auto with = [](std::span<const brec_nested> nested, const char* full, const char* brief) {
    const brec_descriptor type = {1, "outer__", "lib", nested, 4, full, brief};
    const int status = register_one(type);
    brec_forget_all();
    return status;
  };
  const brec_nested as_one[] = {{1, "one__"}};
  const brec_nested as_three[] = {{3, "one__"}};
  const brec_nested nameless[] = {{1, nullptr}};
  const char* full = "$2={x}$1;$1={value}D;";
  const char* brief = "$2=$1.;$1=D;";
  EXPECT_EQ(with(as_one, full, brief), record_bad_descriptor) << "not registered";
  ASSERT_EQ(register_one(one_brec), 0);
  EXPECT_EQ(with(as_one, full, brief), 0);
  ASSERT_EQ(register_one(one_brec), 0);
  EXPECT_EQ(with(nameless, full, brief), record_bad_descriptor);
  ASSERT_EQ(register_one(one_brec), 0);
  EXPECT_EQ(with(as_three, "$2={x}$3;$3={value}D;", "$2=$3.;$3=D;"), record_bad_descriptor)
      << "another number";
  ASSERT_EQ(register_one(one_brec), 0);
  EXPECT_EQ(with(as_one, "$2={x}$1;$1={other}D;", brief), record_bad_descriptor) << "another name";
  ASSERT_EQ(register_one(one_brec), 0);
  EXPECT_EQ(with(as_one, "$2={x}$1;$1={value}[e]e;", "$2=$1.;$1=e;"), record_bad_descriptor)
      << "another type";
}

TEST_F(brec_registry, out_of_memory_registers_nothing) {
  ASSERT_EQ(brec_register_start(), 0);
  ASSERT_EQ(brec_register(samples::leaf_brec), 0);
  ASSERT_EQ(brec_register(samples::pair_brec), 0);
  int status = 0;
  const samples::tree__ record;
  const auto runs = for_each_failing_allocation([&] { status = brec_register(samples::tree_brec); },
                                                [&](std::uint64_t k, bool hit) {
                                                  EXPECT_EQ(status, hit ? no_memory : 0)
                                                      << "allocation " << k;
                                                  int seen = 0;
                                                  encoded(samples::tree_brec, &record, &seen);
                                                  EXPECT_EQ(seen, hit ? record_unknown_type : 0);
                                                });
  EXPECT_GT(runs, 3U);
  EXPECT_EQ(brec_register_end(), 0);
}

}  // namespace
}  // namespace ot
