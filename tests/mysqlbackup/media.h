#pragma once

#include <string>

#include "options.h"
#include "support/media_client.h"

namespace orrery::standin {

/// A session with the media library, which finds in the environment what the command line told for it. Everything
/// throws Failure with the library's own text.
class Media {
 public:
  explicit Media(const Options& options);

  void create(const std::string& name, std::size_t blockSize) { require(session_.backup(name, blockSize), "create"); }
  void open(const std::string& name, std::size_t blockSize) { require(session_.restore(name, blockSize), "open"); }
  void write(const void* block) { require(session_.write(block), "write"); }
  /// False at the end of the image.
  bool read(void* block);
  void close() { require(session_.close(), "complete"); }
  /// Leaves nothing of the image that is being created. Can be asked for when a failure is under way already.
  void giveUp() noexcept { session_.close(media::flagGiveUp); }
  void remove(const std::string& name) { require(session_.remove(name), "remove"); }
  void end() { require(session_.end(), "end the session of"); }

 private:
  void require(unsigned long code, const char* step);

  const test::MediaLibrary library_;
  test::MediaSession session_;
  const std::string imageName_;
};

}  // namespace orrery::standin
