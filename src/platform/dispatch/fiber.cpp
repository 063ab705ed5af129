#include "platform/dispatch/fiber.h"

#include <boost/context/detail/fcontext.hpp>
#include <cstring>
#include <cxxabi.h>
#include <new>
#include <vector>
#include <sys/mman.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTRIN_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define KESTRIN_TSAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KESTRIN_ASAN 1
#endif
#ifdef KESTRIN_ASAN
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif
#ifdef KESTRIN_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace kestrin::dispatch {
namespace {

namespace context = boost::context::detail;

constexpr size_t guardBytes = 4096;
// Regular expressions, ICU and a parser's recursion under a sanitizer need room; untouched pages
// cost nothing.
constexpr size_t stackBytes = 1u << 20;

void* allocateStack() {
  void* memory = mmap(nullptr, guardBytes + stackBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  mprotect(memory, guardBytes, PROT_NONE);
  return memory;
}

void* bottomOf(void* stack) { return static_cast<char*>(stack) + guardBytes; }

}  // namespace

Fiber::Fiber() : stack_(allocateStack()) {
#ifdef KESTRIN_TSAN
  tsanFiber_ = __tsan_create_fiber(0);
#endif
}

Fiber::~Fiber() {
  if (!idle()) {
    // What lies on the stack stays as it is, and what it points to is not lost but left.
#ifdef KESTRIN_ASAN
    __lsan_register_root_region(bottomOf(stack_), stackBytes);
#endif
    // The function itself holds what it captured; it lives on with the stack that runs it.
    static auto* abandoned = new std::vector<std::function<void()>>();
    abandoned->push_back(std::move(body_));
    return;
  }
#ifdef KESTRIN_TSAN
  __tsan_destroy_fiber(tsanFiber_);
#endif
  munmap(stack_, guardBytes + stackBytes);
}

void Fiber::start(std::function<void()> body) {
  body_ = std::move(body);
  if (!context_) {
    context_ = context::make_fcontext(static_cast<char*>(bottomOf(stack_)) + stackBytes, stackBytes,
                                      [](context::transfer_t from) {
                                        auto* self = static_cast<Fiber*>(from.data);
                                        self->caller_ = from.fctx;
                                        entry(self);
                                      });
  }
  enter();
}

void Fiber::resume() { enter(); }

void Fiber::enter() {
  std::array<unsigned char, 16> callers{};
  auto* globals = abi::__cxa_get_globals();
  std::memcpy(callers.data(), static_cast<void*>(globals), callers.size());
  std::memcpy(static_cast<void*>(globals), exceptions_.data(), exceptions_.size());
#ifdef KESTRIN_ASAN
  void* fakeStack = nullptr;
  __sanitizer_start_switch_fiber(&fakeStack, bottomOf(stack_), stackBytes);
#endif
#ifdef KESTRIN_TSAN
  tsanCaller_ = __tsan_get_current_fiber();
  __tsan_switch_to_fiber(tsanFiber_, 0);
#endif
  const context::transfer_t back = context::jump_fcontext(context_, this);
#ifdef KESTRIN_ASAN
  __sanitizer_finish_switch_fiber(fakeStack, nullptr, nullptr);
#endif
  context_ = back.fctx;
  std::memcpy(exceptions_.data(), static_cast<void*>(globals), exceptions_.size());
  std::memcpy(static_cast<void*>(globals), callers.data(), callers.size());
}

void Fiber::entry(void* fiber) {
  auto* self = static_cast<Fiber*>(fiber);
#ifdef KESTRIN_ASAN
  __sanitizer_finish_switch_fiber(nullptr, &self->callerBottom_, &self->callerSize_);
#endif
  for (;;) {
    self->body_();
    self->body_ = nullptr;
    self->handOver();
  }
}

void Fiber::handOver() {
#ifdef KESTRIN_ASAN
  __sanitizer_start_switch_fiber(&fakeStack_, callerBottom_, callerSize_);
#endif
#ifdef KESTRIN_TSAN
  __tsan_switch_to_fiber(tsanCaller_, 0);
#endif
  const context::transfer_t from = context::jump_fcontext(caller_, nullptr);
#ifdef KESTRIN_ASAN
  __sanitizer_finish_switch_fiber(fakeStack_, &callerBottom_, &callerSize_);
#endif
  caller_ = from.fctx;
}

}  // namespace kestrin::dispatch
