#include <iostream>

#include "tools/rkv/RKVCommandLine.h"

int main(int argc, char** argv) {
  return rkv::cli::run(argc, argv, std::cout, std::cerr);
}
