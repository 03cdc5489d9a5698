#include "AccessManagementHost.h"
#include "CommandSyntax.h"
#include "HostOptions.h"
#include "PieceLocations.h"

#include <unistd.h>

#include <exception>
#include <iostream>
#include <memory>
#include <string>

int main(int argc, char** argv) {
  using Amhost::AccessManagementHost;
  Amhost::HostOptions options;
  options.library = Amhost::PieceLocations::componentLibrary();
  std::string error;
  if (!Amhost::HostOptions::parse(argc, argv, options, error)) {
    std::cerr << "amhost: " << error << "\nTry: amhost --help\n";
    return AccessManagementHost::UsageError;
  }
  if (options.help) {
    std::cout << Amhost::HostOptions::usage();
    return AccessManagementHost::Succeeded;
  }
  for (const Amhost::CommandWords::Command& command : options.commands) {
    if (!Amhost::CommandSyntax::check(command, error)) {
      std::cerr << "amhost: " << error << "\n";
      return AccessManagementHost::UsageError;
    }
  }
  std::unique_ptr<AccessManagementHost> host;
  try {
    host.reset(new AccessManagementHost(options, std::cout, std::cerr));
  } catch (const std::exception& loadError) {
    std::cerr << "amhost: " << loadError.what() << "\n";
    return AccessManagementHost::LoadFailed;
  }
  if (!options.commands.empty()) return host->runAll(options.commands);
  return host->runLines(std::cin, isatty(STDIN_FILENO) == 1);
}
