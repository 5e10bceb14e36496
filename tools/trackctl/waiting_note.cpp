#include "tools/trackctl/waiting_note.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <utility>

namespace ot::trackctl {

waiting_note::waiting_note(std::string what)
    : waiter_([this, text = "trackctl: waiting for " + std::move(what) + '\n'] {
        std::unique_lock guard(lock_);
        if (!ended_.wait_for(guard, std::chrono::seconds(2), [this] { return end_; })) {
          std::cerr << text;
        }
      }) {}

waiting_note::~waiting_note() {
  {
    const std::lock_guard guard(lock_);
    end_ = true;
  }
  ended_.notify_one();
  waiter_.join();
}

std::unique_ptr<waiting_note> note_for_input(const std::string& path) {
  if (path == "-") {
    return isatty(STDIN_FILENO) == 1
               ? std::make_unique<waiting_note>("lines from this terminal; Ctrl-D ends them")
               : nullptr;
  }
  struct stat kind {};
  return stat(path.c_str(), &kind) == 0 && !S_ISREG(kind.st_mode)
             ? std::make_unique<waiting_note>(path + ", which is no ordinary file")
             : nullptr;
}

}  // namespace ot::trackctl
