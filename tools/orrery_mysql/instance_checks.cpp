#include "instance_checks.h"

#include <sys/un.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "failure.h"
#include "posix.h"

namespace orrery::tool {
namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestPath = 4095;
constexpr std::size_t kLongestSocket = sizeof(sockaddr_un::sun_path) - 1;

bool isControl(char character) {
  const auto code = static_cast<unsigned char>(character);
  return code < ' ' || code == 0x7f;
}

bool hasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), isControl);
}

/// Values that stand in a client's command line, where nothing quotes them.
void checkCarriable(const std::string& what, const std::string& value) {
  const bool carriable = std::none_of(value.begin(), value.end(), [](char character) {
    return isControl(character) || character == ' ' || character == '"' || character == '\'' || character == '`';
  });
  if (carriable) return;
  throw Failure(what, "it holds a blank, a quote or a control character, which a client's command line cannot carry",
                "use a path or name without them");
}

void checkPort(const std::string& what, std::string_view value) {
  unsigned port = 0;
  const char* const end = value.data() + value.size();
  const auto [position, error] = std::from_chars(value.data(), end, port);
  if (error != std::errc() || position != end || port < 1 || port > 65535) {
    throw Failure(what, "its port is no number from 1 to 65535");
  }
}

void checkAddress(const std::string& what, const std::string& value) {
  const std::size_t colon = value.find(':');
  const bool oneColon = colon != std::string::npos && value.find(':', colon + 1) == std::string::npos;
  if (!oneColon || colon == 0) {
    throw Failure(what, "it is neither an absolute path nor HOST:PORT",
                  "give /path/of.sock or a host, a colon and a port");
  }
  checkPort(what, std::string_view(value).substr(colon + 1));
}

void checkSocket(const Context& context, const std::string& what, const std::string& value) {
  checkCarriable(what, value);
  if (value.empty() || value.front() != '/') return checkAddress(what, value);
  if (value.find(':') != std::string::npos) throw Failure(what, "a socket's path cannot hold a colon");
  if (value.size() > kLongestSocket) {
    throw Failure(what, "a socket's path has at most " + std::to_string(kLongestSocket) + " bytes");
  }
  switch (kindOf(value)) {
    case FileKind::socket:
      break;
    case FileKind::missing:
      context.note(value + " does not exist yet");
      break;
    default:
      throw Failure(what, "there is something else than a socket");
  }
}

void checkAccount(const std::string& what, const std::string& value) {
  if (value.empty()) throw Failure(what, "it is empty");
  checkCarriable(what, value);
}

void checkUnixUser(const std::string& what, const std::string& value) {
  if (!value.empty() && !accountExists(value)) throw Failure(what, "there is no such account on this machine");
}

void checkClients(const std::string& what, const std::string& value) {
  checkCarriable(what, value);
  if (kindOf(value) != FileKind::directory) throw Failure(what, "there is no such folder");
  if (const std::string missing = missingClient(value); !missing.empty()) {
    throw Failure(what, "there is no " + missing + " in it", "name the folder of the server's client programs");
  }
}

void checkTlsFile(const std::string& what, const std::string& value) {
  if (value.empty()) return;
  checkCarriable(what, value);
  if (kindOf(value) != FileKind::regular) throw Failure(what, "there is no such file");
}

void checkPath(const std::string& what, const std::string& value) {
  checkCarriable(what, value);
  if (value.size() > kLongestPath) throw Failure(what, "it is too long for a path");
}

std::string withAbsolutePath(const InstanceField& field, const std::string& value) {
  switch (field.kind) {
    case FieldKind::clients:
    case FieldKind::path:
    case FieldKind::tlsFile:
      return absolutePath(value);
    default:
      return value;
  }
}

}  // namespace

bool looksLikeId(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

void checkInstanceName(const std::string& name) {
  const std::string what = "the instance's name is refused";
  if (name.empty()) throw Failure(what, "it is empty");
  if (looksLikeId(name)) throw Failure(what, name + " holds digits only and would be taken for an id");
  if (name.front() == '-') throw Failure(what, name + " begins with a dash and would be taken for an option");
  if (hasControl(name)) throw Failure(what, "it holds a control character");
  if (name.size() > kLongestName) throw Failure(what, "it has more than " + std::to_string(kLongestName) + " bytes");
}

std::string checkedValue(const Context& context, const InstanceField& field, const std::string& given) {
  if (field.kind == FieldKind::onOff) return given == "on" ? "1" : "0";
  std::string value = withAbsolutePath(field, given);
  const std::string what = std::string(field.option) + " " + value + " is refused";
  switch (field.kind) {
    case FieldKind::socket:
      checkSocket(context, what, value);
      break;
    case FieldKind::account:
      checkAccount(what, value);
      break;
    case FieldKind::unixUser:
      checkUnixUser(what, value);
      break;
    case FieldKind::clients:
      checkClients(what, value);
      break;
    case FieldKind::tlsFile:
      checkTlsFile(what, value);
      break;
    case FieldKind::path:
      checkPath(what, value);
      break;
    case FieldKind::port:
      if (!value.empty()) checkPort(what, value);
      break;
    default:
      if (hasControl(value)) throw Failure(what, "it holds a control character");
      break;
  }
  return value;
}

std::string missingClient(const std::string& folder) {
  const auto has = [&](const char* program) { return isExecutable(folder + "/" + program); };
  if (!has("mysql") && !has("mariadb")) return "mysql or mariadb";
  if (!has("mysqladmin") && !has("mariadb-admin")) return "mysqladmin or mariadb-admin";
  return {};
}

std::string defaultBinaryPath() {
  const std::string path = environmentVariable("PATH");
  for (std::size_t from = 0; from <= path.size();) {
    const std::size_t end = std::min(path.find(':', from), path.size());
    std::string folder = path.substr(from, end - from);
    // Only folders named in full: another one would mean something else to the next process.
    const bool absolute = !folder.empty() && folder.front() == '/';
    if (absolute && (isExecutable(folder + "/mysql") || isExecutable(folder + "/mariadb"))) return folder;
    from = end + 1;
  }
  return "/usr/bin";
}

}  // namespace orrery::tool
