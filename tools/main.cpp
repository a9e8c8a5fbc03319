#include <unistd.h>

#include <iostream>

#include "tools/CommandLine.h"
#include "tools/Screen.h"

int main(int argc, char** argv) {
  const Tools::Screen screen = Tools::screenOf(STDOUT_FILENO);
  return Tools::runCommandLine(argc, argv, std::cin, std::cout, std::cerr, screen);
}
