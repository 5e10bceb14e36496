// How what a track follows looks now: interfaces and routes as the kernel has them, operations as
// the probe service publishes them, sessions as the BFD engine reports them. In the network
// namespace of the service, which this thread enters. Sockets are opened when they are first
// needed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "oper/records/track_records.h"

namespace ot::trackctl::explain {

class object_reader {
 public:
  object_reader();
  ~object_reader();
  object_reader(const object_reader&) = delete;
  object_reader& operator=(const object_reader&) = delete;

  // Findings in words, the reason for the track's state first. Empty for lists and for tracks
  // without a type. What cannot be found out is said in the same way. Throws where the service
  // does not answer.
  std::vector<std::string> look_at(const track_info__& record);

 private:
  struct sockets;
  std::unique_ptr<sockets> sockets_;
};

}  // namespace ot::trackctl::explain
