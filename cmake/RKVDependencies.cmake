# Third-party dependencies, all from Debian packages (scripts/setup.sh installs them).

find_package(Threads REQUIRED)
find_package(EXPAT REQUIRED)
find_package(CURL REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(CLI11 REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)

# asio is header-only and ships no CMake package on Debian.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(rkv_asio INTERFACE)
target_include_directories(rkv_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(rkv_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)

if(RKV_BUILD_TESTS)
  find_package(GTest REQUIRED)
  pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
endif()
if(RKV_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()

# The shared VAST corpus (IAB samples and a large synthetic document) lives outside the
# repository; tests and benchmarks read it from here.
set(_rkv_corpus_default "/work/shared/corpus")
if(EXISTS "${PROJECT_SOURCE_DIR}/../shared/corpus")
  get_filename_component(_rkv_corpus_default "${PROJECT_SOURCE_DIR}/../shared/corpus" ABSOLUTE)
endif()
set(RKV_CORPUS_DIR "${_rkv_corpus_default}" CACHE PATH "Folder of the shared VAST corpus")
