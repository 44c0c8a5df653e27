// Names the calling thread for debuggers and `top -H`; silently does nothing where unsupported.
#pragma once

#include <string>

namespace rkv {

// Linux keeps at most 15 characters; longer names are cut.
void setCurrentThreadName(const std::string& name);

}  // namespace rkv
