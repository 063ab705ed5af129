#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/result.h"

namespace kestrin {

/// A small panel at the bottom right of a Wayland session, in the compositor's layer above
/// everything, full-screen windows too. It never takes the keyboard. Other windows have no place
/// of their own there and no way to stay in front. The owner watches `descriptor` and draws. One
/// thread; nothing here waits but `open`.
class LayerSurface {
 public:
  /// What to draw into: premultiplied ARGB with 32 bits, `scale` pixels for a point.
  struct Picture {
    unsigned char* pixels;
    int width, height, stride;
    int scale;
  };
  struct Callbacks {
    std::function<void(const Picture&)> draw;
    /// A click or a touch, in points from the panel's upper left.
    std::function<void(double x, double y)> press;
  };

  /// Codes of the errors of `offered` and `open`.
  static constexpr int notReachable = 1, noAnswer = 2, noLayers = 3;

  /// Whether this session's compositor has the layers; the error says in one sentence why not.
  static Status offered(std::chrono::milliseconds limit);
  static Result<std::unique_ptr<LayerSurface>> open(Callbacks callbacks,
                                                    std::chrono::milliseconds limit);
  /// What the user loses where it is not to be had, for that reason.
  static std::string loss(const Error& reason);
  LayerSurface(const LayerSurface&) = delete;
  LayerSurface& operator=(const LayerSurface&) = delete;
  ~LayerSurface();

  /// Readable when `dispatch` has something to do.
  int descriptor() const;
  /// False: the compositor has gone, and this object is of no more use.
  bool dispatch();

  /// Shows the panel, or changes its size. `margin` is its distance from both edges. Where the
  /// screen goes away it moves to another one, and comes back with the next one if that was the
  /// last.
  void show(int width, int height, int margin);
  /// Draws again, when the compositor is ready for a new picture.
  void update();
  void hide();

 private:
  struct Parts;
  explicit LayerSurface(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

}  // namespace kestrin
