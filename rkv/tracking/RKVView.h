// RKVView: what the library needs to know of one view of the host's user interface to measure
// how much of it can be seen: its place in the tree (superview, whether it is a window and the
// window's root view), its geometry (frame, bounds) and its visibility (hidden, alpha). The host
// adapts its toolkit's views to it, or builds RKVSimpleView trees. Main-thread only, like the
// toolkit it stands for: the library reads views on the main loop's thread.
//
// Geometry follows the usual toolkit rules without transforms: a view's frame is its rectangle
// in its superview's bounds coordinates; its bounds is the same area in its own coordinates (the
// bounds origin is the point of its own coordinates shown at its top left corner, usually 0, 0).
// A window's frame is in screen coordinates. Views are held in shared_ptrs (shared_from_this
// answers the view itself); the superview chain must end (no view is its own ancestor).
#pragma once

#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/tracking/RKVGeometry.h"

namespace rkv {

class RKV_EXPORT RKVView : public std::enable_shared_from_this<RKVView> {
 public:
  virtual ~RKVView() = default;

  // The view this one is a subview of; null at the top of a tree.
  virtual std::shared_ptr<RKVView> superview() const = 0;
  virtual RKVRect frame() const = 0;
  virtual RKVRect bounds() const = 0;
  virtual bool isHidden() const = 0;
  // Opacity from 0 (transparent) to 1.
  virtual double alpha() const = 0;

  // True for a window: a view at the top of what the screen shows.
  virtual bool isWindow() const { return false; }
  // For a window, its root view (the view of its root view controller): the area its content
  // occupies. Null for other views and for a window without content.
  virtual std::shared_ptr<RKVView> rootView() const { return nullptr; }

  // This view when it is a window, else the nearest ancestor that is; null outside any window.
  std::shared_ptr<RKVView> window() const;

  // `point`, given in this view's bounds coordinates, in `view`'s bounds coordinates. The two may
  // be in different trees: points pass through the coordinates of the top of each tree (screen
  // coordinates when the tops are windows). Null `view` converts to window coordinates: those of
  // this view's window, or of the top of its tree outside any window.
  RKVPoint convertPoint(RKVPoint point, const RKVView* view) const;

 protected:
  RKVView() = default;
  RKVView(const RKVView&) = default;
  RKVView& operator=(const RKVView&) = default;

 private:
  // `point` from this view's bounds coordinates to those of the top of its tree, or of
  // `stopAt` (an ancestor) when given.
  RKVPoint convertPointUp(RKVPoint point, const RKVView* stopAt) const;
  // The reverse of convertPointUp(_, nullptr).
  RKVPoint convertPointDownFromTop(RKVPoint point) const;
};

}  // namespace rkv
