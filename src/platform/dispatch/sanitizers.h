#pragma once

#include <cstddef>
#include <memory>

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
#if defined(__SANITIZE_THREAD__)
#define KESTRIN_TSAN 1
#endif

#ifdef KESTRIN_TSAN
#include <sanitizer/tsan_interface.h>

extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
}
#endif

/// What the simulation tells the thread sanitizer. Each job counts as a thread of its own that runs
/// beside all others, although they share one; only the edges named here order two jobs (posting,
/// the turns of a queue, a semaphore). So a race between two queues is reported in the first run in
/// which both sides happen at all. In other builds nothing of this costs anything.
namespace kestrin::dispatch::order {

#ifdef KESTRIN_TSAN

constexpr bool observed = true;

inline void release(void* edge) { __tsan_release(edge); }
inline void acquire(void* edge) { __tsan_acquire(edge); }

/// While it lives, accesses are neither races nor edges: for the engine itself, and for what
/// simulated ports and tests record from several queues, since one thread makes them in fact. Never
/// block in it.
class Unobserved {
 public:
  Unobserved() { begin(); }
  ~Unobserved() { end(); }
  Unobserved(const Unobserved&) = delete;
  Unobserved& operator=(const Unobserved&) = delete;

 private:
  friend class Observed;
  static void begin() {
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
  }
  static void end() {
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
  }
};

/// Undoes one `Unobserved` while it lives.
class Observed {
 public:
  Observed() { Unobserved::end(); }
  ~Observed() { Unobserved::begin(); }
  Observed(const Observed&) = delete;
  Observed& operator=(const Observed&) = delete;
};

/// From whoever posts a job to the job.
class PostEdge {
 public:
  void set() {
    {
      Unobserved section;
      edge_ = std::make_unique<char>();
    }
    release(edge_.get());
  }
  void pass() {
    if (edge_) acquire(edge_.get());
  }

 private:
  std::unique_ptr<char> edge_;
};

#else

constexpr bool observed = false;

inline void release(void*) {}
inline void acquire(void*) {}

class Unobserved {
 public:
  Unobserved() {}  // keeps compilers from calling it unused
};

class Observed {
 public:
  Observed() {}
};

class PostEdge {
 public:
  void set() {}
  void pass() {}
};

#endif

}  // namespace kestrin::dispatch::order
