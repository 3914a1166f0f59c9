/// The calls of a session, as the backup program makes them: arguments are looked at, failures kept for sbterror, and
/// nothing is thrown at the caller.

#include "calls.h"

#include <pthread.h>

#include <cstring>
#include <memory>
#include <new>

#include "context.h"
#include "file_size_signal.h"
#include "session.h"

namespace orrery::libobk {
namespace {

constexpr int done = 0;
constexpr int failed = -1;

/// A thread cancelled in a call would unwind through what must not be left half done.
class [[nodiscard]] NoCancellation {
 public:
  NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

template <class Body>
int guarded(void* memory, Body&& body) noexcept {
  const NoCancellation whileItRuns;
  Context* const context = contextIn(memory);
  if (context == nullptr) return failed;
  try {
    std::forward<Body>(body)(*context);
    return done;
  } catch (const MediaFailure& failure) {
    keepFailure(*context, failure.code(), failure.what());
  } catch (const std::bad_alloc&) {
    keepFailure(*context, sbtMediaFailure, "the media library is out of memory");
  } catch (const std::exception& error) {
    keepFailure(*context, sbtMediaFailure, error.what());
  }
  return failed;
}

/// For calls that write more than blocks: the store, the log.
template <class Body>
int guardedWriting(void* memory, Body&& body) noexcept {
  const NoCancellation whileItRuns;
  const FileSizeSignal blocked;
  return guarded(memory, std::forward<Body>(body));
}

Session& sessionOf(Context& context) {
  if (context.session == nullptr) throw MediaFailure("there is no session; call sbtinit2 first");
  return *context.session;
}

std::string nameFrom(const char* name) {
  if (name == nullptr) throw MediaFailure("no image name was given");
  return {name, ::strnlen(name, largestName)};
}

std::vector<std::string> namesFrom(const char* const* names) {
  if (names == nullptr) throw MediaFailure("no list of image names was given");
  std::vector<std::string> list;
  for (; *names != nullptr; ++names) list.push_back(nameFrom(*names));
  return list;
}

template <class Block>
Block* requireBlock(Block* block) {
  if (block == nullptr) throw MediaFailure("no block was given");
  return block;
}

int backup(void* memory, Ulong, const char* name, const SbtEntry*, std::size_t blockSize, std::size_t, Uint, Uint) {
  return guardedWriting(memory, [&](Context& context) { sessionOf(context).backup(nameFrom(name), blockSize); });
}

int close(void* memory, Ulong flags) {
  return guardedWriting(memory, [&](Context& context) { sessionOf(context).close((flags & flagGiveUp) != 0); });
}

int command(void* memory, Ulong, const char*) {
  return guarded(memory, [&](Context& context) {
    sessionOf(context);
    // A command that is silently not obeyed would be worse.
    throw MediaFailure("this media library knows no commands; leave the command out");
  });
}

int end(void* memory, Ulong flags) {
  return guardedWriting(memory, [&](Context& context) {
    const std::unique_ptr<Session> session(&sessionOf(context));
    context.session = nullptr;
    if (session->isCreating() && (flags & flagGiveUp) == 0)
      throw MediaFailure("the session ends with an image that was not closed; the image is given up");
  });
}

int error(void* memory, Ulong, Ulong* code, char** text, char** utf8Text) {
  Context* const context = contextIn(memory);
  if (context == nullptr) return failed;
  if (code != nullptr) *code = context->code;
  for (char** const out : {text, utf8Text})
    if (out != nullptr) *out = context->text;
  return done;
}

int info(void* memory, Ulong, const char* const* names, SbtEntry** information) {
  return guarded(memory, [&](Context& context) {
    Session& session = sessionOf(context);
    if (information == nullptr) throw MediaFailure("no place for the information was given");
    *information = session.describe(namesFrom(names));
  });
}

int init(void* memory, Ulong, const SbtEntry*, SbtEntry** output) {
  return guardedWriting(memory, [&](Context& context) {
    if (context.session != nullptr) throw MediaFailure("the session was begun already; call sbtend first");
    // Written by nobody; the interface has no const.
    static SbtEntry nothing[] = {{listEnd, nullptr}};
    context.session = std::make_unique<Session>().release();
    if (output != nullptr) *output = nothing;
  });
}

int read(void* memory, Ulong, void* block) {
  return guarded(memory, [&](Context& context) { sessionOf(context).read(requireBlock(block)); });
}

int removeImages(void* memory, Ulong, const char* const* names) {
  return guardedWriting(memory, [&](Context& context) { sessionOf(context).remove(namesFrom(names)); });
}

int restore(void* memory, Ulong, const char* name, std::size_t blockSize) {
  return guardedWriting(memory, [&](Context& context) { sessionOf(context).restore(nameFrom(name), blockSize); });
}

int write(void* memory, Ulong, const void* block) {
  return guarded(memory, [&](Context& context) { sessionOf(context).write(requireBlock(block)); });
}

}  // namespace

const SbtFunctions& callTable() noexcept {
  static constexpr SbtFunctions table = {backup, close, command,      end,     error, info,
                                         init,   read,  removeImages, restore, write, {}};
  return table;
}

}  // namespace orrery::libobk
