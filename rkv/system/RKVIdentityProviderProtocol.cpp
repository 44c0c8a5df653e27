#include "rkv/system/RKVIdentityProviderProtocol.h"

#include "rkv/foundation/RKVClock.h"

namespace rkv {

std::chrono::system_clock::time_point RKVIdentityProviderProtocol::currentDate() const {
  return RKVClock::system()->date();
}

}  // namespace rkv
