// RKVTransientID: a stored transient identifier with the date it was generated. Immutable.
#pragma once

#include <chrono>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVTransientID {
 public:
  using Date = std::chrono::system_clock::time_point;

  RKVTransientID(std::string transientID, Date lastGeneration)
      : transientID_(std::move(transientID)), lastGeneration_(lastGeneration) {}

  // The identifier: a UUID in its canonical upper-case text when this library generated it.
  const std::string& transientID() const { return transientID_; }
  // When the identifier was generated.
  Date lastGeneration() const { return lastGeneration_; }

 private:
  std::string transientID_;
  Date lastGeneration_;
};

}  // namespace rkv
