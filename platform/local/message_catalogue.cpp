/// The texts of cause and event codes: what happened, and the next step to take.

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "orrery/platform/home.h"

namespace orrery::platform {
namespace {

struct Message {
  std::uint32_t code;
  std::string_view text;
};

/// In the order of the codes. %1 to %9 stand for the arguments.
constexpr Message catalogue[] = {
    {0x12000022,
     "The media library %1 is missing; run `orrery-mysql init` to put it in place, then start the job again."},
    {0x12000080, "The connection to the job manager could not be set up; see the log, then start the job again."},
    {0x1800003E, "The options of the restore job could not be read; start the restore again with its options."},
    {0x5700001C,
     "The databases %1 of the content are not on the %2 server; remove them from the subclient's content or bring them "
     "back."},
    {0x57000020,
     "The databases %1 had been added automatically, are no longer on the server, and were removed from the content of "
     "the subclient %2; nothing needs to be done if they were dropped on purpose."},
    {0x57000034,
     "The databases of the server could not be listed; check with `orrery-mysql ping` that the server answers and that "
     "the account may log in."},
    {0x57000035,
     "The content of the subclient could not be read from the management server; check that its store can be reached, "
     "then start the job again."},
    {0x5700004A,
     "The session or the properties of the instance could not be obtained; check them with `orrery-mysql instance "
     "show`."},
    {0x5700004E,
     "Replication did not resume after the backup; look at it with `orrery-mysql replica status` and start it on the "
     "server."},
    {0x57000056, "The server could not be started or stopped (%1); look into the server's error log."},
    {0x57000066,
     "The file of the certificate authority for TLS is missing; correct its path in the properties of the instance."},
    {0x57000067, "The file of the TLS certificate is missing; correct its path in the properties of the instance."},
    {0x57000068, "The file of the TLS key is missing; correct its path in the properties of the instance."},
    {0x5700006A,
     "The restored files could not be given to the account of the server; set the owner of the data directory, then "
     "start the server."},
    {0x5700006B, "mysqlbackup failed: %1; look into its output in the folder of the job's results."},
    {0x5700006C,
     "An image could not be restored; look into the output of mysqlbackup in the folder of the job's results."},
    {0x5700006D,
     "Enterprise backup is not enabled for the instance %2 (%1); enable it with `orrery-mysql instance set`, then "
     "start "
     "the job again."},
    {0x5700006F,
     "There is no usable enterprise backup image for the chosen time (%1); choose another time, see `orrery-mysql "
     "browse`."},
    {0x57000070, "The folder to restore into is not empty; empty it or choose another one."},
    {0x57000071, "The server did not answer after the restore (%1); look into the server's error log."},
    {0x57000072,
     "The server could not be stopped before the restore, or its directory is still in use: %1. Correct that, then "
     "start the restore again."},
    {0x570000F0,
     "The read lock on the server %1 was lost before the backup gave it back, so what was read may not belong "
     "together; "
     "run the backup again."},
    {0x570000F1, "The step '%1' of the backup failed: %2; correct that, then start the backup again."},
    {0x570000F2, "The backup was ended by a signal (%1) in or before the step '%2'; start it again."},
    {0x570000F3, "The backup was asked to stop and did so in or before the step '%1'; start it again when it suits."},
    {0x570000F4,
     "The replica was not let go as it should be (%1); look at it with `orrery-mysql replica status` and release it "
     "from there."},
    {0x570000F5,
     "What these databases hold is not in the index: %1 (%2); the rest of the backup is not affected. Correct that, "
     "then "
     "start the backup again, or keep what `orrery-mysql metadata` writes."},
    {0x570000F6,
     "This cannot be handed over to mysqlbackup, because it is empty or holds a quote, a line break or, where that "
     "parts values, a blank or a comma: %1; change it, then start the job again."},
    {0x570000F7,
     "The restore was refused before anything was changed: %1; correct that, then start the restore again."},
    {0x570000F8, "The folder to restore into could not be made ready: %1. Correct that, then start the restore again."},
    {0x570000F9, "The restore was asked to stop and did so %1; start the restore again when it suits."},
    {0x570000FA,
     "The server is stopped and its data directory is not complete; correct the reason and start the restore again."},
    {0x57000100, "The %1 was ended by a signal (%2); start it again."},
    {0x57000101, "The %1 was asked to stop and did so; start it again when it suits."},
    {0x57000102,
     "The image %1 was written, but the archive does not know it, so no restore would find it; look into the log, then "
     "start the backup again."},
    {0x57000103,
     "The image is complete, but the databases that it holds are not in the index: %1; restores by time are not "
     "affected."},
    {0x57000104,
     "Where the server keeps its data could not be noted: %1; a restore has to find the server running, or to be told "
     "a "
     "folder."},
    {0x57000105,
     "Another backup of the server, by other means, ended while this one was made: it is not known on which of them "
     "the "
     "image %1 stands, so it was taken out of the archive; its file stays in the media folder and may be removed. Make "
     "the backups one after the other."},
};

constexpr bool inOrder() {
  for (std::size_t i = 1; i < std::size(catalogue); ++i)
    if (catalogue[i - 1].code >= catalogue[i].code) return false;
  return true;
}
static_assert(inOrder(), "the catalogue is searched by halves");

std::string filled(std::string_view text, const std::vector<std::string>& arguments) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%' || i + 1 == text.size() || text[i + 1] < '1' || text[i + 1] > '9') {
      result += text[i];
      continue;
    }
    const auto number = static_cast<std::size_t>(text[++i] - '1');
    result += number < arguments.size() ? arguments[number] : "(not given)";
  }
  return result;
}

std::string unknown(std::uint32_t code, const std::vector<std::string>& arguments) {
  std::array<char, 80> head{};
  std::snprintf(head.data(), head.size(), "There is no text for the message 0x%08x", code);
  std::string result = head.data();
  const char* separator = "; its arguments are: ";
  for (const std::string& argument : arguments) {
    result += separator + argument;
    separator = ", ";
  }
  return result + ".";
}

}  // namespace

std::string messageText(std::uint32_t code, const std::vector<std::string>& arguments) {
  const auto* place =
      std::lower_bound(std::begin(catalogue), std::end(catalogue), code,
                       [](const Message& message, std::uint32_t wanted) { return message.code < wanted; });
  if (place == std::end(catalogue) || place->code != code) return unknown(code, arguments);
  return filled(place->text, arguments);
}

}  // namespace orrery::platform
