// RKVSimpleView: a plain RKVView that holds its own tree: for hosts without a toolkit (which
// mirror the on-screen position of their ad in it) and for tests. A superview holds its subviews;
// a subview holds its superview weakly. Not synchronized: main-thread only, like any view.
#pragma once

#include <memory>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/tracking/RKVView.h"

namespace rkv {

class RKV_EXPORT RKVSimpleView : public RKVView {
 public:
  // A view with this frame, bounds (0, 0, frame size), visible, alpha 1. Make it with
  // std::make_shared: subviews and windows are shared.
  explicit RKVSimpleView(RKVRect frame = {});
  // A window with this frame (in screen coordinates) and no root view yet.
  static std::shared_ptr<RKVSimpleView> makeWindow(RKVRect frame);

  std::shared_ptr<RKVView> superview() const override { return superview_.lock(); }
  RKVRect frame() const override { return frame_; }
  RKVRect bounds() const override { return bounds_; }
  bool isHidden() const override { return hidden_; }
  double alpha() const override { return alpha_; }
  bool isWindow() const override { return isWindow_; }
  std::shared_ptr<RKVView> rootView() const override { return rootView_; }

  // Moves and resizes the view; the bounds take the new size and keep their origin.
  void setFrame(RKVRect frame);
  // Scrolls the content: the point of the view's own coordinates shown at its top left corner.
  void setBoundsOrigin(RKVPoint origin) { bounds_.origin = origin; }
  void setHidden(bool hidden) { hidden_ = hidden; }
  void setAlpha(double alpha) { alpha_ = alpha; }

  // Adds `view` on top of the subviews, taking it from its previous superview. False, changing
  // nothing, for null, this view itself or one of its ancestors (the tree would loop), and when
  // this view is not held in a shared_ptr.
  bool addSubview(const std::shared_ptr<RKVSimpleView>& view);
  // Takes the view out of its superview (and out of a window's root view); nothing without one.
  void removeFromSuperview();
  const std::vector<std::shared_ptr<RKVSimpleView>>& subviews() const { return subviews_; }

  // A window's content: `view` becomes the root view and a subview, and the previous root view
  // leaves the window. Null removes the root view. False, changing nothing, when this view is not
  // a window or addSubview would refuse `view`.
  bool setRootView(const std::shared_ptr<RKVSimpleView>& view);

 private:
  RKVRect frame_;
  RKVRect bounds_;
  bool hidden_ = false;
  double alpha_ = 1.0;
  bool isWindow_ = false;
  std::weak_ptr<RKVSimpleView> superview_;
  std::vector<std::shared_ptr<RKVSimpleView>> subviews_;
  std::shared_ptr<RKVSimpleView> rootView_;
};

}  // namespace rkv
