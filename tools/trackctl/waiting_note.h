// Says on standard error what is waited for, when it takes longer than a moment: reading a FIFO
// that nobody writes to looks like a tool that hangs.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace ot::trackctl {

class waiting_note {
 public:
  // "trackctl: waiting for WHAT", after two seconds, once.
  explicit waiting_note(std::string what);
  ~waiting_note();
  waiting_note(const waiting_note&) = delete;
  waiting_note& operator=(const waiting_note&) = delete;

 private:
  std::mutex lock_;
  std::condition_variable ended_;
  bool end_ = false;
  std::thread waiter_;
};

// While a file is read: null where it is an ordinary one, which waits for nobody. "-" is standard
// input, which is told of when it is a terminal.
std::unique_ptr<waiting_note> note_for_input(const std::string& path);

}  // namespace ot::trackctl
