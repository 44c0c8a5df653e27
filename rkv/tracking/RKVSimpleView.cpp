#include "rkv/tracking/RKVSimpleView.h"

#include <algorithm>

namespace rkv {

RKVSimpleView::RKVSimpleView(RKVRect frame) : frame_(frame), bounds_{{0, 0}, frame.size} {}

std::shared_ptr<RKVSimpleView> RKVSimpleView::makeWindow(RKVRect frame) {
  auto window = std::make_shared<RKVSimpleView>(frame);
  window->isWindow_ = true;
  return window;
}

void RKVSimpleView::setFrame(RKVRect frame) {
  frame_ = frame;
  bounds_.size = frame.size;
}

bool RKVSimpleView::addSubview(const std::shared_ptr<RKVSimpleView>& view) {
  const std::shared_ptr<RKVView> self = weak_from_this().lock();
  if (!view || !self) return false;
  for (std::shared_ptr<RKVView> ancestor = self; ancestor; ancestor = ancestor->superview())
    if (ancestor == view) return false;
  view->removeFromSuperview();
  view->superview_ = std::static_pointer_cast<RKVSimpleView>(self);
  subviews_.push_back(view);
  return true;
}

void RKVSimpleView::removeFromSuperview() {
  const std::shared_ptr<RKVSimpleView> parent = superview_.lock();
  superview_.reset();
  if (!parent) return;
  // Keeps this view alive until the end, even when its superview held the last reference.
  const std::shared_ptr<RKVView> self = shared_from_this();
  std::erase_if(parent->subviews_, [this](const auto& subview) { return subview.get() == this; });
  if (parent->rootView_.get() == this) parent->rootView_.reset();
}

bool RKVSimpleView::setRootView(const std::shared_ptr<RKVSimpleView>& view) {
  if (!isWindow_) return false;
  if (view == rootView_) return true;
  if (view) {
    if (!addSubview(view)) return false;
  }
  if (const std::shared_ptr<RKVSimpleView> previous = rootView_) previous->removeFromSuperview();
  rootView_ = view;
  return true;
}

}  // namespace rkv
