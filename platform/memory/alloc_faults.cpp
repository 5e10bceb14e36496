// Replaces the program's operator new and delete, every form of them, on top of malloc, so that
// tests can make any allocation of the service fail and can see whether memory grows. Sanitizers
// stay in force, since they stand under malloc.
#include "platform/memory/alloc_faults.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace ot {

namespace {

// Plain words: operator new runs before and after everything else in a thread.
constinit thread_local alloc_faults* active = nullptr;
constinit thread_local bool paused = false;

constinit std::atomic<std::int64_t> live_count{0};
constinit std::atomic<std::int64_t> live_bytes{0};

// Null when a fault is due or the memory is at its end.
void* allocate(std::size_t size, std::size_t alignment) noexcept {
  if (active != nullptr && !paused && active->next_fails()) {
    return nullptr;
  }
  void* block = nullptr;
  const std::size_t wanted = std::max<std::size_t>(size, 1);
  if (alignment <= alignof(std::max_align_t)) {
    block = std::malloc(wanted);
  } else if (posix_memalign(&block, alignment, wanted) != 0) {
    block = nullptr;
  }
  if (block != nullptr) {
    live_count.fetch_add(1, std::memory_order_relaxed);
    live_bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(block)),
                         std::memory_order_relaxed);
  }
  return block;
}

void* allocate_or_throw(std::size_t size, std::size_t alignment) {
  void* block = allocate(size, alignment);
  if (block == nullptr) {
    throw std::bad_alloc{};
  }
  return block;
}

void release(void* block) noexcept {
  if (block != nullptr) {
    live_count.fetch_sub(1, std::memory_order_relaxed);
    live_bytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(block)),
                         std::memory_order_relaxed);
    std::free(block);
  }
}

}  // namespace

alloc_faults::alloc_faults(std::uint64_t k, alloc_fault_mode mode) noexcept
    : k_{k}, mode_{mode}, outer_{active} {
  active = this;
}

alloc_faults::~alloc_faults() {
  active = outer_;
}

bool alloc_faults::next_fails() noexcept {
  const std::uint64_t index = count_++;
  const bool fails = mode_ == alloc_fault_mode::once ? index == k_ : index >= k_;
  hit_ = hit_ || fails;
  return fails;
}

alloc_faults_paused::alloc_faults_paused() noexcept : before_{paused} {
  paused = true;
}

alloc_faults_paused::~alloc_faults_paused() {
  paused = before_;
}

alloc_faults_resumed::alloc_faults_resumed() noexcept : before_{paused} {
  paused = false;
}

alloc_faults_resumed::~alloc_faults_resumed() {
  paused = before_;
}

live_allocations count_live_allocations() noexcept {
  return {live_count.load(std::memory_order_relaxed), live_bytes.load(std::memory_order_relaxed)};
}

}  // namespace ot

void* operator new(std::size_t size) {
  return ot::allocate_or_throw(size, 0);
}
void* operator new[](std::size_t size) {
  return ot::allocate_or_throw(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return ot::allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return ot::allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return ot::allocate(size, 0);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return ot::allocate(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return ot::allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return ot::allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept {
  ot::release(block);
}
void operator delete[](void* block) noexcept {
  ot::release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  ot::release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  ot::release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  ot::release(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  ot::release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  ot::release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  ot::release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  ot::release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  ot::release(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  ot::release(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  ot::release(block);
}
