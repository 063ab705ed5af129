#include "wayland/virtual_pointer.h"

#include <cstring>
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <virtual-pointer-client-protocol.h>
#include <wayland-client.h>

struct VirtualPointer::Parts {
  wl_display* display = nullptr;
  zwlr_virtual_pointer_manager_v1* manager = nullptr;
  zwlr_virtual_pointer_v1* pointer = nullptr;
};

VirtualPointer::VirtualPointer() : parts_(std::make_unique<Parts>()) {
  static constexpr wl_registry_listener listener{
      .global =
          [](void* data, wl_registry* registry, uint32_t name, const char* kind, uint32_t) {
            const auto& wanted = zwlr_virtual_pointer_manager_v1_interface;
            if (std::strcmp(kind, wanted.name) != 0) return;
            static_cast<Parts*>(data)->manager = static_cast<zwlr_virtual_pointer_manager_v1*>(
                wl_registry_bind(registry, name, &wanted, 1));
          },
      .global_remove = [](void*, wl_registry*, uint32_t) {}};
  parts_->display = wl_display_connect(nullptr);
  if (parts_->display == nullptr) throw std::runtime_error("no compositor");
  wl_registry_add_listener(wl_display_get_registry(parts_->display), &listener, parts_.get());
  wl_display_roundtrip(parts_->display);
  if (parts_->manager == nullptr) throw std::runtime_error("no virtual pointers");
  parts_->pointer =
      zwlr_virtual_pointer_manager_v1_create_virtual_pointer(parts_->manager, nullptr);
  wl_display_roundtrip(parts_->display);
}

VirtualPointer::~VirtualPointer() { wl_display_disconnect(parts_->display); }

void VirtualPointer::click(unsigned x, unsigned y, unsigned screenWidth, unsigned screenHeight) {
  auto* pointer = parts_->pointer;
  zwlr_virtual_pointer_v1_motion_absolute(pointer, 1, x, y, screenWidth, screenHeight);
  zwlr_virtual_pointer_v1_frame(pointer);
  zwlr_virtual_pointer_v1_button(pointer, 2, BTN_LEFT, WL_POINTER_BUTTON_STATE_PRESSED);
  zwlr_virtual_pointer_v1_frame(pointer);
  zwlr_virtual_pointer_v1_button(pointer, 3, BTN_LEFT, WL_POINTER_BUTTON_STATE_RELEASED);
  zwlr_virtual_pointer_v1_frame(pointer);
  wl_display_roundtrip(parts_->display);
}
