#include "Tool.h"
#include "ToolHome.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  try {
    const AcsConfigUpdate::ToolHome home;
    home.recordCall(args);
    return AcsConfigUpdate::Tool(home).run(args, std::cout, std::cerr);
  } catch (const std::exception& e) {
    // A broken home or script, not an answer of the framework.
    std::cerr << "acs-config-update: " << e.what() << '\n';
    return 70;
  }
}
