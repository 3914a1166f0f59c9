#include "media.h"

#include <stdlib.h>

#include <cerrno>
#include <stdexcept>

#include "failure.h"

namespace orrery::standin {
namespace {

const std::string& withEnvironment(const Options& options) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the library is not loaded yet, so there is one thread
  for (const auto& [name, value] : options.environment) ::setenv(name.c_str(), value.c_str(), 1);
  return options.mediaLibrary;
}

}  // namespace

Media::Media(const Options& options)
    : library_(withEnvironment(options)), session_(library_), imageName_(options.imageName) {
  require(session_.begin(), "begin the session of");
}

bool Media::read(void* block) {
  const unsigned long code = session_.read(block);
  if (code != media::sbtEndOfFile) require(code, "read");
  return code == 0;
}

void Media::require(unsigned long code, const char* step) {
  if (code == 0) return;
  throw Failure(std::string("the media library cannot ") + step + " the image " + imageName_ + ": " + session_.error() +
                " (" + std::to_string(code) + ")");
}

}  // namespace orrery::standin
