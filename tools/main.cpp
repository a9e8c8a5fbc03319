#include <iostream>

#include "tools/CommandLine.h"

int main(int argc, char** argv) {
  return Tools::runCommandLine(argc, argv, std::cin, std::cout, std::cerr);
}
