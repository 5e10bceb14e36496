#include "tools/trackctl/explain/findings.h"

#include <linux/if.h>

#include <iterator>

#include "platform/interface_manager.h"
#include "platform/ipv4.h"
#include "tools/json.h"
#include "tools/trackctl/names.h"

namespace ot::trackctl::explain {
namespace {

using json = nlohmann::ordered_json;

struct operstate_row {
  std::uint8_t state;
  const char* text;
};
constexpr operstate_row not_up[] = {
    {IF_OPER_NOTPRESENT, "it is up, but its hardware is not there"},
    {IF_OPER_DOWN, "it is up, but has no carrier"},
    {IF_OPER_LOWERLAYERDOWN,
     "it is up, but has no carrier: the interface below it, or the far end, is down"},
    {IF_OPER_TESTING, "it is being tested"},
    {IF_OPER_DORMANT, "it has a carrier, but waits to be let in (802.1X or such)"},
};

std::string by(const rtclient_result& match) {
  return match.first_hop.empty() ? "" : ", by " + std::string(match.first_hop.view());
}

std::string prefix_text(std::uint32_t address, std::uint32_t length) {
  return address_text(address & ipv4_prefixlen2mask(length)) + '/' + std::to_string(length);
}

std::string text(const json& session, const char* member) {
  const auto found = session.find(member);
  return found == session.end() || !found->is_string() ? "" : found->get<std::string>();
}

void add_diagnostic(const char* whose, const std::string& diagnostic, findings& ret) {
  if (!diagnostic.empty() && diagnostic != "no diagnostic" && diagnostic != "none") {
    ret.push_back(std::string(whose) + " diagnostic: " + diagnostic);
  }
}

}  // namespace

findings interface_findings(const std::string& name, const link_record* link) {
  if (link == nullptr) {
    return {"there is no interface " + name};
  }
  if (link->state == ifm_state_admin_down) {
    return {"it is administratively down; `ip link set " + name + " up` changes that"};
  }
  if (link->state == ifm_state_up) {
    return {link->redundancy == 0 ? "it has a carrier, but is the standby member of its bond"
                                  : "it is up and has a carrier"};
  }
  for (const operstate_row& row : not_up) {
    if (row.state == link->operstate) {
      return {row.text};
    }
  }
  return {"it is up, but its line protocol is not"};
}

findings route_findings(const route_look& look) {
  const rtclient_result& match = look.match;
  constexpr std::uint32_t host_length = 32;
  if (!look.vrf_exists) {
    return {"there is no VRF " + look.vrf};
  }
  if (match.own_address && look.length == host_length) {
    return {"it is an address of the router's own" + by(match)};
  }
  if (!match.route_found) {
    return {"no usable route to it is in the table"};
  }
  if (match.prefix_length == look.length) {
    return {"it is in the table" + by(match)};
  }
  const std::string other = prefix_text(look.address, match.prefix_length) + by(match);
  if (match.prefix_length > look.length) {
    return {"the longest match of " + address_text(look.address) + " is the longer " + other};
  }
  return {"it is not in the table; " + address_text(look.address) + " goes by the shorter " +
          other};
}

findings operation_findings(const operation_look& look) {
  const std::string number = std::to_string(look.operation);
  if (!look.service_runs) {
    return {"the probe service does not run, so operation " + number + " has no result"};
  }
  if (!look.code) {
    return {"there is no operation " + number + "; /etc/object_tracking/probes.toml defines them"};
  }
  const std::string result = *look.code == 0 ? "it has no result yet"
                                             : "its result: " + look.code_text + " (return code " +
                                                   std::to_string(*look.code) + ")";
  return look.what.empty() ? findings{result} : findings{result, "the operation: " + look.what};
}

findings session_findings(const std::string& track, const json& session,
                          const std::string& engine) {
  findings found;
  if (!session.is_object()) {
    found.emplace_back("the service has no session for it");
    return found;
  }
  if (const std::string problem = text(session, "problem"); !problem.empty()) {
    found.push_back("it is not run: " + problem);
  } else {
    found.push_back("the session is " + text(session, "state") + "; the peer says " +
                    text(session, "remote_state"));
    add_diagnostic("our", text(session, "diagnostic"), found);
    add_diagnostic("the peer's", text(session, "remote_diagnostic"), found);
  }
  if (const std::string other = text(session, "followed_by"); !other.empty() && other != track) {
    found.push_back("only track " + other + " follows this session, the newest on it");
  }
  if (!engine.empty()) {
    found.push_back(engine);
  }
  return found;
}

}  // namespace ot::trackctl::explain
