// What c-ares' releases have under different names. Its records (from 1.28) replace the function
// that wrote a query before, its list of servers is a text (from 1.24), and its pace (bounded from
// 1.22 on) follows what servers took before; what was before is called deprecated.
// Debian 12 has 1.18.
#pragma once

#include <ares.h>
#include <arpa/nameser.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ot::qmond {

// dns_question: the bytes of a recursive query for `name`; empty when it cannot be put into one.

#if ARES_VERSION >= 0x011c00

using cares_channel = ares_channel_t*;

inline std::vector<unsigned char> dns_question(const std::string& name, std::uint16_t type,
                                               std::uint16_t id) {
  ares_dns_record_t* record = nullptr;
  unsigned char* bytes = nullptr;
  std::size_t length = 0;
  const bool written =
      ares_dns_record_create(&record, id, ARES_FLAG_RD, ARES_OPCODE_QUERY, ARES_RCODE_NOERROR) ==
          ARES_SUCCESS &&
      ares_dns_record_query_add(record, name.c_str(), static_cast<ares_dns_rec_type_t>(type),
                                ARES_CLASS_IN) == ARES_SUCCESS &&
      ares_dns_write(record, &bytes, &length) == ARES_SUCCESS;
  ares_dns_record_destroy(record);
  std::vector<unsigned char> query(bytes, bytes + (written ? length : 0));
  ares_free_string(bytes);
  return query;
}

#else

using cares_channel = ares_channel;

inline std::vector<unsigned char> dns_question(const std::string& name, std::uint16_t type,
                                               std::uint16_t id) {
  unsigned char* bytes = nullptr;
  int length = 0;
  const bool written =
      ares_create_query(name.c_str(), ns_c_in, type, id, 1, &bytes, &length, 0) == ARES_SUCCESS;
  std::vector<unsigned char> query(bytes, bytes + (written ? length : 0));
  ares_free_string(bytes);
  return query;
}

#endif

// How many servers the channel asks.
inline std::uint32_t count_servers(cares_channel channel) noexcept {
#if ARES_VERSION >= 0x011800
  char* const list = ares_get_servers_csv(channel);
  std::uint32_t count = list == nullptr || *list == '\0' ? 0 : 1;
  for (const char* at = list; count != 0 && *at != '\0'; ++at) {
    count += *at == ',' ? 1 : 0;
  }
  ares_free_string(list);
#else
  ares_addr_port_node* list = nullptr;
  std::uint32_t count = 0;
  if (ares_get_servers_ports(channel, &list) == ARES_SUCCESS) {
    for (const ares_addr_port_node* each = list; each != nullptr; each = each->next) {
      ++count;
    }
    ares_free_data(list);
  }
#endif
  return count;
}

// How long a server is waited for, and how often it is asked; the bits to set in the mask of
// options. Each further time c-ares has twice the patience. Where it follows what a server took
// before, it begins with five times that, with 250 ms at least, and a server that has become slower
// must be asked until `longest_ms` come: only from its answers it learns.
inline int set_pace(ares_options& options, std::uint32_t try_ms,
                    [[maybe_unused]] std::uint32_t longest_ms) noexcept {
  options.timeout = static_cast<int>(try_ms);
  options.tries = 2;
  int mask = ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES;
#ifdef ARES_OPT_MAXTIMEOUTMS
  constexpr std::uint32_t surely_ms = 125;  // up to half of the patience is left off by chance
  for (std::uint32_t sure_ms = surely_ms; sure_ms < longest_ms; sure_ms *= 2) {
    ++options.tries;
  }
  options.maxtimeout = static_cast<int>(longest_ms);
  mask |= ARES_OPT_MAXTIMEOUTMS;
#endif
  return mask;
}

}  // namespace ot::qmond
