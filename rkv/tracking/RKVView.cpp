#include "rkv/tracking/RKVView.h"

#include <vector>

namespace rkv {

namespace {

// From a view's bounds coordinates to its superview's bounds coordinates, and back.
RKVPoint toSuperview(const RKVView& view, RKVPoint point) {
  const RKVRect frame = view.frame(), bounds = view.bounds();
  return {point.x - bounds.origin.x + frame.origin.x, point.y - bounds.origin.y + frame.origin.y};
}

RKVPoint fromSuperview(const RKVView& view, RKVPoint point) {
  const RKVRect frame = view.frame(), bounds = view.bounds();
  return {point.x - frame.origin.x + bounds.origin.x, point.y - frame.origin.y + bounds.origin.y};
}

}  // namespace

std::shared_ptr<RKVView> RKVView::window() const {
  // A window not held in a shared_ptr cannot be answered: null.
  if (isWindow()) return std::const_pointer_cast<RKVView>(weak_from_this().lock());
  for (std::shared_ptr<RKVView> view = superview(); view; view = view->superview())
    if (view->isWindow()) return view;
  return nullptr;
}

RKVPoint RKVView::convertPoint(RKVPoint point, const RKVView* view) const {
  if (view == this) return point;
  if (view == nullptr) {
    // A window's bounds coordinates are its window coordinates; outside any window, the bounds
    // coordinates of the top of the tree stand for them.
    std::shared_ptr<RKVView> top = window();
    if (!top) {
      for (std::shared_ptr<RKVView> up = superview(); up; up = up->superview())
        top = up;
    }
    return convertPointUp(point, top ? top.get() : this);
  }
  return view->convertPointDownFromTop(convertPointUp(point, nullptr));
}

RKVPoint RKVView::convertPointUp(RKVPoint point, const RKVView* stopAt) const {
  if (this == stopAt) return point;
  point = toSuperview(*this, point);
  for (std::shared_ptr<RKVView> view = superview(); view && view.get() != stopAt;
       view = view->superview())
    point = toSuperview(*view, point);
  return point;
}

RKVPoint RKVView::convertPointDownFromTop(RKVPoint point) const {
  std::vector<const RKVView*> chain{this};
  std::vector<std::shared_ptr<RKVView>> keep;  // the ancestors stay alive while they are read
  for (std::shared_ptr<RKVView> view = superview(); view; view = view->superview()) {
    chain.push_back(view.get());
    keep.push_back(view);
  }
  for (auto it = chain.rbegin(); it != chain.rend(); ++it)
    point = fromSuperview(**it, point);
  return point;
}

}  // namespace rkv
