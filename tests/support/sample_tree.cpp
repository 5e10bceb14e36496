// The sample tree's table and its one verify and apply function.
#include "tests/support/sample_tree.h"

#include "platform/path_tuple.h"
#include "platform/status.h"

namespace ot::test {
namespace {

constexpr ledger_tree_node nodes[] = {
    {"thing", ledger_node_kind::literal, 1, -1, -1, 1},
    {nullptr, ledger_node_kind::name, 2, -1, -1, 1, 39},
    {"a", ledger_node_kind::literal, -1, 3, 0, 0},
    {"text", ledger_node_kind::literal, -1, 4, 1, 0},
    {"kind", ledger_node_kind::literal, 7, 5, -1, 1},
    {"missing", ledger_node_kind::literal, -1, 6, 3, 0},
    {"note", ledger_node_kind::literal, -1, -1, 4, 0},
    {nullptr, ledger_node_kind::number, 8, -1, -1, 1, 1},
    {"pair", ledger_node_kind::literal, -1, -1, 2, 0},
};

std::string value_text(const ledger_value* value) {
  if (value == nullptr) {
    return "-";
  }
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  switch (value->kind) {
    case ledger_kind::text:
      return std::string{value->as_text()};
    case ledger_kind::tuple:
      path_tuple_unpack(value->bytes(), "%N%N", &first, &second);
      return std::to_string(first) + "," + std::to_string(second);
    default:
      return std::to_string(value->as_u32());
  }
}

std::string describe(const ledger_change& change) {
  std::string line = std::to_string(change.event);
  for (const ledger_path_field& field : change.fields) {
    line.append(" ").append(field.text);
    if (field.number != 0) {
      line.append("=").append(std::to_string(field.number));
    }
  }
  return line + " " + value_text(change.old_value) + ">" + value_text(change.new_value);
}

int answer(const std::map<std::string, int>& answers, const ledger_change& change) {
  const auto found = answers.find(change.field(0)->text);
  return found == answers.end() ? status_ok : found->second;
}

int verify(const ledger_change& change, ledger_verdict& verdict) {
  sample().verified.push_back(describe(change));
  if (sample().while_verifying != nullptr) {
    sample().while_verifying();
  }
  const int code = answer(sample().refuse, change);
  verdict.accept = code == status_ok ? 1 : 0;
  if (code != status_ok) {
    verdict.text = std::make_unique<char[]>(16);
    std::string{"refused"}.copy(verdict.text.get(), 15);
  }
  return code;
}

int apply(const ledger_change& change) {
  sample().applied.push_back(describe(change));
  return answer(sample().fail_apply, change);
}

int expect(const ledger_change& change) {
  sample().expected.push_back(describe(change));
  return status_ok;
}

constexpr ledger_registration rows[] = {
    {"thing/<name>/a", ledger_row_handled, verify, apply, ledger_turn::owner, 0, expect},
    {"thing/<name>/text", ledger_row_handled | ledger_row_text, verify, apply},
    {"thing/<name>/kind/<n>/pair", ledger_row_handled | ledger_row_tuple, verify, apply,
     ledger_turn::late, 2},
    {"thing/<name>/missing", ledger_row_handled, nullptr, nullptr},
    {"thing/<name>/note", ledger_row_text, nullptr, nullptr},
};

}  // namespace

sample_calls& sample() {
  static sample_calls calls;
  return calls;
}

int register_sample_tree() {
  sample() = {};
  return ledger_config_register(sample_root, nodes, rows,
                                []() noexcept { sample().expected.push_back("forgotten"); });
}

}  // namespace ot::test
