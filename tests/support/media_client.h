#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "sbt_interface.h"

namespace orrery::test {

/// libobk.so as a backup program loads it: one name is looked up, everything else comes from the table behind it.
/// Throws std::runtime_error when that fails.
class MediaLibrary {
 public:
  explicit MediaLibrary(const std::string& path);
  ~MediaLibrary();
  MediaLibrary(const MediaLibrary&) = delete;
  MediaLibrary& operator=(const MediaLibrary&) = delete;

  const media::SbtFunctions& calls() const noexcept { return *calls_; }
  std::size_t contextSize() const noexcept { return contextSize_; }
  void* symbol(const char* name) const;

 private:
  void* handle_;
  const media::SbtFunctions* calls_ = nullptr;
  std::size_t contextSize_ = 0;
};

/// One session, with the context memory of a client. Every call answers 0, or the code that sbterror tells.
class MediaSession {
 public:
  explicit MediaSession(const MediaLibrary& library);
  ~MediaSession();
  MediaSession(const MediaSession&) = delete;
  MediaSession& operator=(const MediaSession&) = delete;

  unsigned long begin() { return answer(calls_.sbtinit2(context(), 0, nullptr, nullptr)); }
  unsigned long end(unsigned long flags = 0) { return answer(calls_.sbtend(context(), flags)); }
  unsigned long backup(const std::string& name, std::size_t blockSize) {
    return answer(calls_.sbtbackup(context(), 0, name.c_str(), nullptr, blockSize, 0, 0, 0));
  }
  unsigned long restore(const std::string& name, std::size_t blockSize) {
    return answer(calls_.sbtrestore(context(), 0, name.c_str(), blockSize));
  }
  unsigned long write(const void* block) { return answer(calls_.sbtwrite2(context(), 0, block)); }
  unsigned long read(void* block) { return answer(calls_.sbtread2(context(), 0, block)); }
  unsigned long close(unsigned long flags = 0) { return answer(calls_.sbtclose2(context(), flags)); }
  unsigned long remove(const std::string& name);
  /// What sbtinfo2 tells of these images; none when it fails.
  std::vector<media::SbtEntry> describe(const std::vector<std::string>& names);
  /// Text of the last failure.
  std::string error();
  void* context() noexcept { return memory_.get(); }

  /// A whole image; `text` is cut into blocks and must be a whole number of them.
  unsigned long put(const std::string& name, const std::string& text, std::size_t blockSize);
  /// 0 with the image in `text`, or the code of what failed.
  unsigned long get(const std::string& name, std::size_t blockSize, std::string& text);

 private:
  unsigned long answer(int result);

  const media::SbtFunctions& calls_;
  const std::unique_ptr<std::max_align_t[]> memory_;
};

}  // namespace orrery::test
