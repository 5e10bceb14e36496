// The robust mutex over the system's: try first, then a wait that says who waits, and the revival
// of a mutex whose owner died. The system hands a dead owner's mutex to one locker only and keeps
// the others waiting until that one has made it consistent and released it, so a revival in
// progress needs no condition of its own.
#include "platform/robust_mutex.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ot {
namespace {

// The lock diagnostics: whom this thread is waiting for a mutex as, null while it is not waiting.
// Read from a debugger or a core.
thread_local const char* volatile robust_mutex_waiter = nullptr;

[[noreturn]] void assertion_failed(const char* who, int code) {
  std::fprintf(stderr, "%s: %d %s -- assertion failed\n", who, code, strerrordesc_np(code));
  std::abort();
}

void check(const char* who, int code) {
  if (code != 0) {
    assertion_failed(who, code);
  }
}

}  // namespace

robust_mutex::robust_mutex(robust_mutex_scope scope) {
  pthread_mutexattr_t attributes;
  check(__func__, pthread_mutexattr_init(&attributes));
  check(__func__, pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST));
  if (scope == robust_mutex_scope::processes) {
    check(__func__, pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED));
  }
  // Error checking: a second lock by the owner is a defect to report, not a silent hang.
  check(__func__, pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK));
  check(__func__, pthread_mutex_init(&mutex_, &attributes));
  pthread_mutexattr_destroy(&attributes);
}

robust_mutex::~robust_mutex() {
  pthread_mutex_destroy(&mutex_);
}

void robust_mutex::lock(const char* who) {
  int result = pthread_mutex_trylock(&mutex_);
  const bool waited = result == EBUSY;
  if (waited) {
    robust_mutex_waiter = who;
    result = pthread_mutex_lock(&mutex_);
    robust_mutex_waiter = nullptr;
  }
  if (result == EOWNERDEAD) {
    result = pthread_mutex_consistent(&mutex_);
    ++revivals_;
  }
  check(who, result);
  waits_ += waited ? 1 : 0;
}

void robust_mutex::unlock() {
  check(__func__, pthread_mutex_unlock(&mutex_));
}

}  // namespace ot
