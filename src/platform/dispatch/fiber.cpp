#include "platform/dispatch/fiber.h"

#include <boost/context/detail/fcontext.hpp>
#include <cerrno>
#include <cstring>
#include <cxxabi.h>
#include <sys/mman.h>

#include "platform/dispatch/frame.h"
#include "platform/dispatch/sanitizers.h"

#ifdef KESTRIN_ASAN
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
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
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) misuse(std::string("no stack for a simulated job: ") + strerror(errno));
  mprotect(memory, guardBytes, PROT_NONE);
  return memory;
}

char* bottomOf(void* stack) { return static_cast<char*>(stack) + guardBytes; }

}  // namespace

Fiber::Fiber(std::function<void()> body) : body_(std::move(body)), stack_(allocateStack()) {
  context_ = context::make_fcontext(bottomOf(stack_) + stackBytes, stackBytes,
                                    [](context::transfer_t from) {
                                      auto* self = static_cast<Fiber*>(from.data);
                                      self->caller_ = from.fctx;
                                      self->loop();
                                    });
#ifdef KESTRIN_TSAN
  threadOfFiber_ = __tsan_create_fiber(0);
#endif
}

Fiber::~Fiber() {
  const bool unfinished = !idle_;
  if (!unfinished) {
    ending_ = true;
    resume();
  }
#ifdef KESTRIN_TSAN
  __tsan_destroy_fiber(threadOfFiber_);
#endif
  if (!unfinished) {
    munmap(stack_, guardBytes + stackBytes);
    return;
  }
#ifdef KESTRIN_ASAN
  // What lies on the stack stays as it is, and what it points to is not lost but left.
  const char* top = bottomOf(stack_) + stackBytes;
  __lsan_register_root_region(context_, static_cast<size_t>(top - static_cast<char*>(context_)));
#endif
}

void Fiber::resume() {
  void* globals = abi::__cxa_get_globals();
  std::array<unsigned char, 16> callers{};
  std::memcpy(callers.data(), globals, callers.size());
  std::memcpy(globals, exceptions_.data(), exceptions_.size());
#ifdef KESTRIN_ASAN
  void* fakeStack = nullptr;
  __sanitizer_start_switch_fiber(&fakeStack, bottomOf(stack_), stackBytes);
#endif
#ifdef KESTRIN_TSAN
  threadOfCaller_ = __tsan_get_current_fiber();
  __tsan_switch_to_fiber(threadOfFiber_, __tsan_switch_to_fiber_no_sync);
#endif
  context_ = context::jump_fcontext(context_, this).fctx;
#ifdef KESTRIN_ASAN
  __sanitizer_finish_switch_fiber(fakeStack, nullptr, nullptr);
#endif
  std::memcpy(exceptions_.data(), globals, exceptions_.size());
  std::memcpy(globals, callers.data(), callers.size());
}

void Fiber::loop() {
#ifdef KESTRIN_ASAN
  __sanitizer_finish_switch_fiber(nullptr, &callerBottom_, &callerSize_);
#endif
  while (!ending_) {
    idle_ = false;
    body_();
    idle_ = true;
    handOver();
  }
  handOver();
}

void Fiber::handOver() {
#ifdef KESTRIN_ASAN
  __sanitizer_start_switch_fiber(ending_ ? nullptr : &fakeStack_, callerBottom_, callerSize_);
#endif
#ifdef KESTRIN_TSAN
  __tsan_switch_to_fiber(threadOfCaller_, __tsan_switch_to_fiber_no_sync);
#endif
  caller_ = context::jump_fcontext(caller_, nullptr).fctx;
#ifdef KESTRIN_ASAN
  __sanitizer_finish_switch_fiber(fakeStack_, &callerBottom_, &callerSize_);
#endif
}

}  // namespace kestrin::dispatch
