// orrery-mysql init: makes the home and links the client library into it.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include <CLI/CLI.hpp>

#include "orrery/platform/home.h"

#include "client_library.h"
#include "context.h"
#include "failure.h"
#include "posix.h"

namespace orrery::tool {
namespace {

namespace fs = std::filesystem;

struct InitArguments {
  std::string client;
  std::string library;
};

struct LibraryLink {
  std::string path;     ///< of the link
  std::string library;  ///< what it leads to; empty when there is none
  const char* state = "missing";
};

/// Puts a link in place of an earlier one in a single step, so that no reader ever finds none.
void replaceLink(const std::string& link, const std::string& target) {
  const std::string temporary = link + "." + std::to_string(::getpid()) + ".new";
  const std::string what = "the client library cannot be linked as " + link;
  std::error_code error;
  fs::remove(temporary, error);
  fs::create_symlink(target, temporary, error);
  if (error) throw Failure(what, error.message());
  if (std::rename(temporary.c_str(), link.c_str()) != 0) {
    const int reason = errno;
    fs::remove(temporary, error);
    throw Failure(what, errorText(reason));
  }
}

LibraryLink linkClientLibrary(const std::string& home, const std::string& wanted) {
  LibraryLink result{home + "/libmysqlclient.so", {}, "missing"};
  std::error_code error;
  const fs::file_status earlier = fs::symlink_status(result.path, error);
  const bool isLink = fs::is_symlink(earlier);
  if (fs::exists(earlier) && !isLink) {
    if (!wanted.empty()) {
      throw Failure("the client library cannot be linked", result.path + " is a file of its own",
                    "move it away and run init again");
    }
    return {result.path, result.path, "file"};
  }
  if (isLink && wanted.empty() && fs::exists(result.path, error)) {
    return {result.path, fs::read_symlink(result.path, error).string(), "kept"};
  }
  const std::optional<std::string> library =
      wanted.empty() ? findClientLibrary(clientLibraryFolders()) : std::optional<std::string>(wanted);
  if (!library) return result;
  replaceLink(result.path, *library);
  result.library = *library;
  result.state = isLink ? "replaced" : "made";
  return result;
}

void checkWantedLibrary(const std::string& path) {
  if (!path.empty() && !isLoadable(path)) {
    throw Failure("the client library " + path + " is refused", "it is no library that this program can load");
  }
}

void init(Context& context, InitArguments arguments) {
  arguments.library = absolutePath(arguments.library);
  checkWantedLibrary(arguments.library);
  const std::string home = context.homePath();
  const bool existed = platform::isHome(home);
  require(platform::createHome(home, arguments.client), "the home cannot be made");
  const LibraryLink link = linkClientLibrary(home, arguments.library);
  if (link.library.empty()) {
    context.note(
        "no client library was found; install libmariadb3 or libmysqlclient and run init again, or name one "
        "with --client-library");
  }
  platform::Client own;
  require(context.services().inventory->ownClient(own), "this machine's client is not known");

  Json document;
  document["home"] = home;
  document["created"] = !existed;
  document["client"] = own.name;
  document["client_library"] = link.library.empty() ? Json(nullptr) : Json(link.library);
  document["client_library_link"] = link.path;
  document["client_library_link_state"] = link.state;
  Table table;
  table.add({"home", home + (existed ? " (was there already)" : " (made)")});
  table.add({"client", own.name});
  table.add({"client library", link.library.empty() ? "none found" : link.library + " (" + link.state + ")"});
  context.print(document, table);
}

}  // namespace

void addInitCommand(CLI::App& program, Action& chosen) {
  CLI::App* command = program.add_subcommand("init", "Make the home, find a client library and link it");
  auto arguments = std::make_shared<InitArguments>();
  command->add_option("--client", arguments->client, "Name of this machine's client; the host's name unless given");
  command->add_option("--client-library", arguments->library,
                      "Client library to link, in place of an earlier link; the newest installed unless given");
  command->callback([arguments, &chosen] { chosen = [arguments](Context& context) { init(context, *arguments); }; });
}

}  // namespace orrery::tool
