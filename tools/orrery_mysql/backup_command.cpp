// orrery-mysql backup: what a file backup of a server has to protect, found while its replica is held.

#include <memory>

#include <CLI/CLI.hpp>

#include "backup_road.h"
#include "context.h"

namespace orrery::tool {

void addBackupCommand(CLI::App& program, Action& chosen) {
  auto request = std::make_shared<BackupRequest>();
  CLI::App* command = program.add_subcommand(
      "backup", "Back a server up: hold its replica, list what is to be protected, write it down");
  command->add_option("INSTANCE", request->instance, "Name or id")->required();
  command->add_option("--subclient", request->subclient, "The subclient; the default one unless given")
      ->type_name("NAME");
  command
      ->add_option_function<std::string>(
          "--level", [request](const std::string& level) { request->level = level == "full" ? 1 : 2; },
          "full unless given")
      ->check(CLI::IsMember({"full", "incremental"}).description(""))
      ->type_name("full|incremental");
  command->callback([=, &chosen] { chosen = [=](Context& context) { runBackup(context, *request); }; });
}

}  // namespace orrery::tool
