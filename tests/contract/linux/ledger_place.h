// A private place for the ledger of one test, and a service that runs in it.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "platform/evm.h"

namespace ot::test {

// A new directory as OT_ROOT while it lives; removed with all that is in it.
class ledger_place {
 public:
  ledger_place();
  ~ledger_place();
  ledger_place(const ledger_place&) = delete;
  ledger_place& operator=(const ledger_place&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  [[nodiscard]] std::string socket() const;

 private:
  std::string path_;
};

// The ledger on the calling thread, which does not run a loop.
class direct_service {
 public:
  direct_service();
  ~direct_service();
  direct_service(const direct_service&) = delete;
  direct_service& operator=(const direct_service&) = delete;

 private:
  evm* manager_ = nullptr;
};

// The ledger on a thread that runs its loop and serves the socket.
class threaded_service {
 public:
  threaded_service();
  ~threaded_service();
  threaded_service(const threaded_service&) = delete;
  threaded_service& operator=(const threaded_service&) = delete;

  // Runs `work` on the service's thread and waits for its end.
  void run(const std::function<void()>& work);

 private:
  void loop(const std::function<void()>& on_open);

  evm* manager_ = nullptr;
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

}  // namespace ot::test
