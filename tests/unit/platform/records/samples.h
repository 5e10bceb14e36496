// A record type with every kind of field, for the tests of the typed-record engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/brec.h"
#include "platform/fixed_text.h"

namespace ot::samples {

struct leaf__ {
  leaf__* next = nullptr;
  fixed_text<5> name;
  bool flag = false;
  std::uint64_t big = 0;
};
struct pair__ {
  bool first = false;
  std::uint32_t second = 0;
};
struct choice {
  std::uint32_t discriminant = 0;
  union {
    pair__ pair;
    std::uint64_t big;
    fixed_text<7> text;
    std::uint32_t* number;
  };
  choice() noexcept : big(0) {}
};
struct tree__ {
  std::uint32_t colour = 0;
  fixed_text<9> tag;
  pair__ pair;
  choice chosen;
  leaf__* leaves = nullptr;
  std::uint32_t* count = nullptr;
  fixed_text<6>* note = nullptr;
  bool* flag = nullptr;
  std::uint64_t* big = nullptr;
  pair__* inner = nullptr;
  choice* other = nullptr;
  tree__* child = nullptr;
};

inline constexpr brec_descriptor leaf_brec = {1,
                                              "leaf__",
                                              "samples",
                                              {},
                                              sizeof(leaf__),
                                              "$1=L{next}p($1){name}5x%S{flag}b{big}H;",
                                              "$1=Lp($1)5x%SbH;"};
inline constexpr brec_descriptor pair_brec = {
    1, "pair__", "samples", {}, sizeof(pair__), "$2={first}b{second}D;", "$2=bD;"};
inline constexpr brec_nested tree_nested[] = {{1, "leaf__"}, {2, "pair__"}};
inline constexpr brec_descriptor tree_brec = {
    1,
    "tree__",
    "samples",
    tree_nested,
    sizeof(tree__),
    "$4={colour}[colour_]e{tag}9x%S{pair}$2{chosen}$3{leaves}p($1){count}p(D){note}p(6x%S)"
    "{flag}p(b){big}p(H){inner}p($2){other}p($3){child}p($4);"
    "$1=L{next}p($1){name}5x%S{flag}b{big}H;$2={first}b{second}D;"
    "$3=?(<discriminant,colour_>,1:{pair}$2,2:{big}H,5:{text}7x%S,6:{number}p(D),?:v);",
    "$4=e9x%S$2.$3.p($1)p(D)p(6x%S)p(b)p(H)p($2)p($3)p($4);$1=Lp($1)5x%SbH;$2=bD;"
    "$3=?(,1:$2.,2:H,5:7x%S,6:p(D),?:v);"};

// Registers the three types anew, as the only ones. 0 or a status code.
inline int register_samples() noexcept {
  brec_forget_all();
  int status = brec_register_start();
  for (const brec_descriptor* type : {&leaf_brec, &pair_brec, &tree_brec}) {
    if (status == 0) status = brec_register(*type);
  }
  return status == 0 ? brec_register_end() : status;
}

// A record on the heap with everything that hangs on it; null when it could not be made.
template <typename Record>
class owned_record {
 public:
  explicit owned_record(const brec_descriptor& type) noexcept
      : type_(&type), record_(brec_alloc<Record>()) {}
  owned_record(owned_record&& other) noexcept
      : type_(other.type_), record_(std::exchange(other.record_, nullptr)) {}
  owned_record& operator=(owned_record&&) = delete;
  ~owned_record() { brec_free(*type_, record_); }
  Record* operator->() const noexcept { return record_; }
  Record& operator*() const noexcept { return *record_; }
  Record* get() const noexcept { return record_; }

 private:
  const brec_descriptor* type_;
  Record* record_;
};

template <typename Value>
Value* allocated(const Value& value) {
  auto* copy = brec_alloc<Value>();
  if (copy != nullptr) *copy = value;
  return copy;
}

// Every field set, `leaves` leaves, and `depth` children below.
inline owned_record<tree__> full_tree(unsigned leaves, unsigned depth) {
  owned_record<tree__> tree(tree_brec);
  tree->colour = 4000000000U;
  tree->tag.assign("tag");
  tree->pair.second = 300;
  tree->chosen.discriminant = 6;
  tree->chosen.number = allocated<std::uint32_t>(77);
  for (unsigned index = 0; index < leaves; ++index) {
    auto* leaf = brec_alloc<leaf__>();
    leaf->name.assign("leaf");
    leaf->flag = index % 2 == 1;
    leaf->big = index;
    leaf->next = tree->leaves;
    tree->leaves = leaf;
  }
  tree->count = allocated<std::uint32_t>(0);
  tree->note = allocated(fixed_text<6>("notes"));
  tree->flag = allocated(true);
  tree->big = allocated(~std::uint64_t{0});
  tree->inner = allocated(pair__{true, 5});
  tree->other = brec_alloc<choice>();
  tree->other->discriminant = 1;
  tree->other->pair = {true, 9};
  tree__* last = tree.get();
  for (unsigned index = 0; index < depth; ++index) {
    last->child = brec_alloc<tree__>();
    last = last->child;
  }
  return tree;
}

// The encoding, empty when it was refused; `ret_status` gets the result.
inline std::vector<std::byte> encoded(const brec_descriptor& type, const void* record,
                                      int* ret_status = nullptr) {
  std::byte* bytes = nullptr;
  std::size_t length = 0;
  const int status = brec_encode(type, record, &bytes, &length);
  if (ret_status != nullptr) *ret_status = status;
  const std::unique_ptr<std::byte[]> owner(bytes);
  return {bytes, bytes + length};
}

}  // namespace ot::samples
