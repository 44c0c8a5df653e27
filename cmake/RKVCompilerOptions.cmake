# Warnings, sanitizers and compiler launchers shared by every target of the project.

find_program(RKV_CCACHE ccache)
if(RKV_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER "${RKV_CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${RKV_CCACHE}")
endif()

# Applied to the project's own targets (not to third-party code).
add_library(rkv_warnings INTERFACE)
target_compile_options(rkv_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
  -Wold-style-cast -Wcast-align -Woverloaded-virtual -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(rkv_warnings INTERFACE -Wthread-safety)
elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 reports std::variant/std::optional members holding shared_ptr or string as "maybe
  # uninitialized" after inlining (false positives); clang's uninitialized checks still run.
  target_compile_options(rkv_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
if(RKV_WERROR)
  target_compile_options(rkv_warnings INTERFACE -Werror)
endif()

if(RKV_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
    -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(RKV_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC warns that TSan does not model std::atomic_thread_fence, which libstdc++'s shared_ptr
    # and condition variables use; the report is about the tool, not about our code.
    add_compile_options(-Wno-tsan)
  endif()
  add_link_options(-fsanitize=thread)
elseif(NOT RKV_SANITIZE STREQUAL "")
  message(FATAL_ERROR "RKV_SANITIZE must be empty, 'address' or 'thread', not '${RKV_SANITIZE}'")
endif()

if(RKV_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "RKV_BUILD_FUZZERS needs clang (libFuzzer)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
