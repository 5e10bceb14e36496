// Private places and services for the ledger's tests.
#include "tests/contract/linux/ledger_place.h"

#include <cstdlib>
#include <filesystem>
#include <future>
#include <stdexcept>

#include "platform/event_manager.h"
#include "platform/ledger/server/server.h"

namespace ot::test {
namespace {

// Opens and serves, or says why not.
evm* open_service() {
  evm* manager = nullptr;
  if (evm_create(&manager) != 0) {
    throw std::runtime_error{"no event manager"};
  }
  char error[512] = {};
  if (ledger_server_open(manager, error, sizeof error) != 0) {
    evm_destroy(manager);
    throw std::runtime_error{error};
  }
  ledger_server_serve();
  return manager;
}

void close_service(evm* manager) {
  ledger_server_close();
  evm_destroy(manager);
}

}  // namespace

ledger_place::ledger_place() {
  // In memory where that can be had: hundreds of synced writes then cost nothing.
  path_ = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
  path_ += "/ledger_test_XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error{"no temporary directory"};
  }
  setenv("OT_ROOT", path_.c_str(), 1);
}

ledger_place::~ledger_place() {
  unsetenv("OT_ROOT");
  std::filesystem::remove_all(path_);
}

std::string ledger_place::socket() const {
  return path_ + "/run/object_tracking/ledger.sock";
}

direct_service::direct_service() : manager_(open_service()) {}

direct_service::~direct_service() {
  close_service(manager_);
}

threaded_service::threaded_service() {
  std::promise<void> opened;
  thread_ = std::thread{[this, &opened] {
    try {
      loop([&opened] { opened.set_value(); });
    } catch (const std::exception&) {
      opened.set_exception(std::current_exception());
    }
  }};
  try {
    opened.get_future().get();
  } catch (...) {
    thread_.join();
    throw;
  }
}

threaded_service::~threaded_service() {
  run([this] { ending_ = true; });
  thread_.join();
}

void threaded_service::loop(const std::function<void()>& on_open) {
  manager_ = open_service();
  on_open();
  while (!ending_) {
    if (evm_block(manager_) == 0) {
      evm_dispatch(manager_);
    }
  }
  close_service(manager_);
}

void threaded_service::run(const std::function<void()>& work) {
  struct job {
    const std::function<void()>& work;
    std::promise<void> done;
  } posted{work, {}};
  evm_post(
      manager_,
      [](void* argument) {
        auto& current = *static_cast<job*>(argument);
        current.work();
        current.done.set_value();
      },
      &posted);
  posted.done.get_future().get();
}

}  // namespace ot::test
