// RKVColor: an RGB colour with alpha, each component a double from 0 to 1. A plain value.
#pragma once

#include "rkv/RKVExport.h"

namespace rkv {

struct RKV_EXPORT RKVColor {
  double red = 0.0;
  double green = 0.0;
  double blue = 0.0;
  double alpha = 1.0;

  friend bool operator==(const RKVColor&, const RKVColor&) = default;
};

}  // namespace rkv
