#include "platform/linux/wayland_buffers.h"

#include <algorithm>
#include <sys/mman.h>
#include <wayland-client.h>

#include "platform/linux/descriptor.h"

namespace kestrin::wayland {
namespace {

/// One shown, one on its way, and one to draw into.
constexpr size_t most = 3;

}  // namespace

Buffers::Buffer::Buffer(wl_shm* shm, int width, int height)
    : width_(width),
      height_(height),
      bytes_(static_cast<size_t>(width) * 4 * static_cast<size_t>(height)) {
  const Descriptor memory(memfd_create("kestrin-overlay", MFD_CLOEXEC));
  if (!memory.valid() || ftruncate(memory.get(), static_cast<off_t>(bytes_)) != 0) return;
  void* mapped = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0);
  if (mapped == MAP_FAILED) return;
  pixels_ = static_cast<unsigned char*>(mapped);
  const Owned<wl_shm_pool> pool(
      wl_shm_create_pool(shm, memory.get(), static_cast<int32_t>(bytes_)));
  object_.reset(
      wl_shm_pool_create_buffer(pool.get(), 0, width_, height_, stride(), WL_SHM_FORMAT_ARGB8888));
  static constexpr wl_buffer_listener listener{.release = released};
  wl_buffer_add_listener(object_.get(), &listener, this);
}

Buffers::Buffer::~Buffer() {
  if (pixels_ != nullptr) munmap(pixels_, bytes_);
}

wl_buffer* Buffers::Buffer::handOver() {
  held_ = true;
  return object_.get();
}

void Buffers::Buffer::released(void* data, wl_buffer*) {
  static_cast<Buffer*>(data)->held_ = false;
}

Buffers::Buffer* Buffers::acquire(wl_shm* shm, int width, int height) {
  std::erase_if(buffers_, [&](const auto& buffer) {
    return !buffer->held() && (buffer->width() != width || buffer->height() != height);
  });
  for (const auto& buffer : buffers_) {
    if (!buffer->held()) return buffer.get();
  }
  if (buffers_.size() >= most) return nullptr;
  auto made = std::make_unique<Buffer>(shm, width, height);
  if (made->pixels() == nullptr) return nullptr;
  return buffers_.emplace_back(std::move(made)).get();
}

}  // namespace kestrin::wayland
