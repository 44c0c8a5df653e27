#include "rkv/foundation/internal/RKVThreadName.h"

#if defined(__linux__)
#include <pthread.h>
#endif

namespace rkv {

void setCurrentThreadName(const std::string& name) {
#if defined(__linux__)
  const std::string cut = name.substr(0, 15);
  pthread_setname_np(pthread_self(), cut.c_str());
#else
  (void)name;
#endif
}

}  // namespace rkv
