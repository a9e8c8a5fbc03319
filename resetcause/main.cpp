#include <iostream>

#include "resetcause/CommandLine.h"

int main(int argc, char** argv) {
  return ResetCause::runCommandLine(argc, argv, std::cout, std::cerr);
}
