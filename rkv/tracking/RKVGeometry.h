// Points, sizes and rectangles of the view tree (RKVView.h), in points with the origin at the top
// left and y growing downwards. Values; immutable operations.
#pragma once

#include <algorithm>
#include <limits>

#include "rkv/RKVExport.h"

namespace rkv {

struct RKV_EXPORT RKVPoint {
  double x = 0;
  double y = 0;
  friend bool operator==(const RKVPoint&, const RKVPoint&) = default;
};

struct RKV_EXPORT RKVSize {
  double width = 0;
  double height = 0;
  friend bool operator==(const RKVSize&, const RKVSize&) = default;
};

struct RKV_EXPORT RKVRect {
  RKVPoint origin;
  RKVSize size;

  // The same rectangle with a non-negative width and height (a negative size extends to the left
  // or upwards from the origin).
  RKVRect standardized() const {
    RKVRect r = *this;
    if (r.size.width < 0) r.origin.x += r.size.width, r.size.width = -r.size.width;
    if (r.size.height < 0) r.origin.y += r.size.height, r.size.height = -r.size.height;
    return r;
  }
  // The rectangle both cover (of the standardized rectangles); when they do not overlap, the
  // null rectangle: an infinite origin and a zero size, so its area is 0.
  static RKVRect intersection(const RKVRect& a, const RKVRect& b) {
    const RKVRect p = a.standardized(), q = b.standardized();
    const double left = std::max(p.origin.x, q.origin.x);
    const double top = std::max(p.origin.y, q.origin.y);
    const double right = std::min(p.origin.x + p.size.width, q.origin.x + q.size.width);
    const double bottom = std::min(p.origin.y + p.size.height, q.origin.y + q.size.height);
    // Written so that NaN coordinates also give the null rectangle.
    if (!(left <= right && top <= bottom)) return null();
    return RKVRect{{left, top}, {right - left, bottom - top}};
  }
  static RKVRect null() {
    constexpr double inf = std::numeric_limits<double>::infinity();
    return RKVRect{{inf, inf}, {0, 0}};
  }

  friend bool operator==(const RKVRect&, const RKVRect&) = default;
};

}  // namespace rkv
