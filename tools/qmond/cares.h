// What c-ares' releases have under different names. Its records (from 1.28) replace the function
// that wrote a query before, which later releases call deprecated; Debian 12 has 1.18.
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

}  // namespace ot::qmond
