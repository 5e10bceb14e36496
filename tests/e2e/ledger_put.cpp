// A test tool that changes the ledger's configuration item by item, without the checks and the
// order that the operator's tool brings. It reads lines from standard input:
//
//   set u32 PATH NUMBER | set text PATH TEXT | set tuple PATH ADDRESS... | delete PATH | commit
//
// and answers each commit with its result code, followed by one line per refusal. Exit status: 0
// all commits were done, 1 one was not, 2 a line could not be read, 3 the service is not running.
#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/ledger_commit.h"
#include "platform/status.h"

namespace {

std::vector<std::byte> bytes_of(const void* data, std::size_t size) {
  const auto* begin = static_cast<const std::byte*>(data);
  return {begin, begin + size};
}

// IPv4 addresses up to the end of the line, each packed as a tuple's number.
bool parse_addresses(std::istringstream& line, std::vector<std::byte>& ret) {
  for (std::string text; line >> text;) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
    const std::vector<std::byte> bytes = bytes_of(&address, sizeof address);
    ret.insert(ret.end(), bytes.begin(), bytes.end());
  }
  return !ret.empty();
}

bool parse_set(std::istringstream& line, ot::ledger_proposal& ret) {
  std::string kind;
  line >> kind >> ret.path >> std::ws;
  if (kind == "u32") {
    std::uint32_t number = 0;
    if (!(line >> number)) return false;
    ret.kind = ot::ledger_kind::u32;
    ret.value = bytes_of(&number, sizeof number);
    return true;
  }
  if (kind == "tuple") {
    ret.kind = ot::ledger_kind::tuple;
    return parse_addresses(line, ret.value);
  }
  std::string text;
  std::getline(line, text);
  ret.kind = ot::ledger_kind::text;
  ret.value = bytes_of(text.data(), text.size());
  return kind == "text";
}

bool parse(std::istringstream& line, const std::string& verb, ot::ledger_proposal& ret) {
  if (verb == "set") return parse_set(line, ret);
  ret.remove = true;
  return verb == "delete" && static_cast<bool>(line >> ret.path);
}

int commit(ot::ledger_conn* connection, const std::vector<ot::ledger_proposal>& changes) {
  std::vector<ot::ledger_refusal> refusals;
  const int result = ot::ledger_commit(connection, changes, &refusals);
  std::printf("0x%08x\n", static_cast<unsigned>(result));
  for (const ot::ledger_refusal& refusal : refusals) {
    std::printf("\t%s 0x%08x %s%s\n", refusal.path.c_str(), static_cast<unsigned>(refusal.code),
                refusal.text.c_str(), refusal.applied ? " (stored)" : "");
  }
  std::fflush(stdout);
  return result;
}

}  // namespace

int main() {
  ot::ledger_conn* connection = ot::ledger_get_default_conn();
  if (connection == nullptr) {
    std::fputs("ledger_put: the service is not running\n", stderr);
    return 3;
  }
  int status = 0;
  std::vector<ot::ledger_proposal> changes;
  for (std::string text; std::getline(std::cin, text);) {
    std::istringstream line(text);
    std::string verb;
    line >> verb;
    if (verb == "commit") {
      if (commit(connection, changes) != ot::status_ok) status = 1;
      changes.clear();
    } else if (!parse(line, verb, changes.emplace_back())) {
      std::fprintf(stderr, "ledger_put: cannot read: %s\n", text.c_str());
      return 2;
    }
  }
  return status;
}
