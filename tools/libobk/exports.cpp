/// What libobk.so exports: the entry point, and the names of the interface that came before this one.

#include <exception>

#include "orrery/platform/export.h"

#include "calls.h"
#include "context.h"
#include "environment.h"
#include "sbt_interface.h"

using namespace orrery::libobk;

namespace {

static_assert(sizeof(Context) <= std::size_t{1} << 20);

// The interface has no const; nobody writes to these.
Ulong interfaceVersion = 0x0200;
Ulong softwareVersion = ORRERY_SOFTWARE_VERSION;
Ulong contextSize = sizeof(Context);
char description[] = "orrery-mysql media library";
static_assert(sizeof description <= 64);
SbtFunctions functions = callTable();

SbtEntry answers[] = {
    {initInterfaceVersion, &interfaceVersion}, {initDescription, description},          {initFunctions, &functions},
    {initContextSize, &contextSize},           {initSoftwareVersion, &softwareVersion}, {initEnd, nullptr}};

}  // namespace

extern "C" {

#define ORRERY_LIBOBK_EXPORT __attribute__((visibility("default")))

ORRERY_LIBOBK_EXPORT int sbtinit(SbtError* error, const SbtEntry*, SbtEntry** output) {
  if (output == nullptr) {
    if (error != nullptr) *error = {sbtBadArgument, 0};
    return -1;
  }
  try {
    workOutHome();
  } catch (const std::exception&) {
    if (error != nullptr) *error = {sbtSystemError, 0};
    return -1;
  }
  *output = answers;
  return 0;
}

// Kept: backup programs expect these names to be there, and to fail, in a library of the second version. Their
// arguments are not touched.
ORRERY_LIBOBK_EXPORT int sbtopen();
ORRERY_LIBOBK_EXPORT int sbtread();
ORRERY_LIBOBK_EXPORT int sbtwrite();
ORRERY_LIBOBK_EXPORT int sbtclose();
ORRERY_LIBOBK_EXPORT int sbtinfo();
ORRERY_LIBOBK_EXPORT int sbtremove();
int sbtopen() {
  return -1;
}
int sbtread() {
  return -1;
}
int sbtwrite() {
  return -1;
}
int sbtclose() {
  return -1;
}
int sbtinfo() {
  return -1;
}
int sbtremove() {
  return -1;
}
}
