// orrery-mysql init: makes the home and links the client library and the media library into it.

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
  const std::string what = target + " cannot be linked as " + link;
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

/// Links what `find` finds, where no link leads to a library yet, or `wanted` in any case.
template <class Find>
LibraryLink linkLibrary(const std::string& link, const std::string& wanted, Find find) {
  LibraryLink result{link, {}, "missing"};
  std::error_code error;
  const fs::file_status earlier = fs::symlink_status(result.path, error);
  const bool isLink = fs::is_symlink(earlier);
  if (fs::exists(earlier) && !isLink) {
    if (!wanted.empty()) {
      throw Failure(wanted + " cannot be linked", result.path + " is a file of its own",
                    "move it away and run init again");
    }
    return {result.path, result.path, "file"};
  }
  if (isLink && wanted.empty() && fs::exists(result.path, error)) {
    return {result.path, fs::read_symlink(result.path, error).string(), "kept"};
  }
  const std::optional<std::string> library = wanted.empty() ? find() : std::optional<std::string>(wanted);
  if (!library) return result;
  replaceLink(result.path, *library);
  result.library = *library;
  result.state = isLink ? "replaced" : "made";
  return result;
}

/// What lies beside this program: in its folder, in the build tree, where both are installed.
std::optional<std::string> findMediaLibrary() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const char* const place : {"libobk.so", "../libobk/libobk.so", ORRERY_INSTALLED_LIBOBK}) {
    const fs::path path = fs::canonical(program / place, error);
    if (!error && isLoadable(path)) return path;
  }
  return {};
}

void put(Json& document, Table& table, const std::string& key, const std::string& name, const LibraryLink& link) {
  document[key] = link.library.empty() ? Json(nullptr) : Json(link.library);
  document[key + "_link"] = link.path;
  document[key + "_link_state"] = link.state;
  table.add({name, link.library.empty() ? "none found" : link.library + " (" + link.state + ")"});
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
  const LibraryLink client = linkLibrary(home + "/libmysqlclient.so", arguments.library,
                                         [] { return findClientLibrary(clientLibraryFolders()); });
  const LibraryLink media = linkLibrary(home + "/libobk.so", {}, findMediaLibrary);
  if (client.library.empty()) {
    context.note(
        "no client library was found; install libmariadb3 or libmysqlclient and run init again, or name one "
        "with --client-library");
  }
  if (media.library.empty())
    context.note("no media library lies beside this program; enterprise backups to images need libobk.so");
  platform::Client own;
  require(context.services().inventory->ownClient(own), "this machine's client is not known");

  Json document;
  document["home"] = home;
  document["created"] = !existed;
  document["client"] = own.name;
  Table table;
  table.add({"home", home + (existed ? " (was there already)" : " (made)")});
  table.add({"client", own.name});
  put(document, table, "client_library", "client library", client);
  put(document, table, "media_library", "media library", media);
  context.print(document, table);
}

}  // namespace

void addInitCommand(CLI::App& program, Action& chosen) {
  CLI::App* command =
      program.add_subcommand("init", "Make the home, find a client library and the media library and link them");
  auto arguments = std::make_shared<InitArguments>();
  command->add_option("--client", arguments->client, "Name of this machine's client; the host's name unless given");
  command->add_option("--client-library", arguments->library,
                      "Client library to link, in place of an earlier link; the newest installed unless given");
  command->callback([arguments, &chosen] { chosen = [arguments](Context& context) { init(context, *arguments); }; });
}

}  // namespace orrery::tool
