#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/linux/wayland_objects.h"

namespace kestrin::wayland {

/// The pictures of one surface, in memory shared with the compositor. A picture that it has not
/// given back yet is never drawn into.
class Buffers {
 public:
  class Buffer {
   public:
    Buffer(wl_shm* shm, int width, int height);
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer();

    int width() const { return width_; }
    int height() const { return height_; }
    int stride() const { return width_ * 4; }
    /// Premultiplied ARGB, 32 bits. Null where no memory could be shared.
    unsigned char* pixels() const { return pixels_; }
    /// To be attached to the surface; the compositor holds it from now on.
    wl_buffer* handOver();
    bool held() const { return held_; }

   private:
    static void released(void* data, wl_buffer* buffer);

    int width_, height_;
    size_t bytes_;
    unsigned char* pixels_ = nullptr;
    Owned<wl_buffer> object_;
    bool held_ = false;
  };

  /// One to draw into; null while the compositor holds all that there may be, and where no memory
  /// can be shared.
  Buffer* acquire(wl_shm* shm, int width, int height);
  /// When the surface is gone: what was held is held no more.
  void clear() { buffers_.clear(); }

 private:
  std::vector<std::unique_ptr<Buffer>> buffers_;
};

}  // namespace kestrin::wayland
