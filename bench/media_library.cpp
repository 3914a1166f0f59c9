// Images through libobk.so beside dd with the same block size, where the bench checksums as many bytes in the same
// blocks. Both take zeros from the system and put what they read into the null device.
// usage: orrery-bench-media-library [PAIRS [MEBIBYTES]]

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "orrery/platform/home.h"

#include "image_format.h"
#include "pairs.h"
#include "support/media_client.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::bench::compare;
using orrery::bench::require;
using orrery::platform::OwnFd;
using orrery::test::MediaLibrary;
using orrery::test::MediaSession;

struct Work {
  const MediaLibrary& library;
  std::string folder;
  std::size_t blockSize;
  std::size_t blocks;
};

void dd(const Work& work, const std::string& from, const std::string& to, const std::string& more) {
  std::vector<std::string> arguments{"dd",
                                     "if=" + from,
                                     "of=" + to,
                                     "bs=" + std::to_string(work.blockSize),
                                     "count=" + std::to_string(work.blocks),
                                     "status=none"};
  if (!more.empty()) arguments.push_back(more);
  require(orrery::test::runProgram(arguments).exitStatus == 0, "dd fails");
}

void checksumAsMuch(const Work& work) {
  const std::string block(work.blockSize, '\0');
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < work.blocks; ++i) sum += orrery::media::checksum(block.data(), block.size());
  require(sum != 1, "checksums");
}

void writeOurs(const Work& work) {
  const OwnFd zeros(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  std::string block(work.blockSize, '\0');
  MediaSession session(work.library);
  require(session.begin() == 0, session.error());
  session.remove("image");
  require(session.backup("image", block.size()) == 0, session.error());
  for (std::size_t i = 0; i < work.blocks; ++i) {
    require(::read(zeros.get(), block.data(), block.size()) == static_cast<ssize_t>(block.size()), "zeros");
    require(session.write(block.data()) == 0, session.error());
  }
  require(session.close() == 0, session.error());
}

void writeRaw(const Work& work) {
  // As ours removes the earlier image.
  ::unlink((work.folder + "/raw").c_str());
  dd(work, "/dev/zero", work.folder + "/raw", "conv=fsync");
  checksumAsMuch(work);
}

void readOurs(const Work& work) {
  const OwnFd null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  std::string block(work.blockSize, '\0');
  MediaSession session(work.library);
  require(session.begin() == 0 && session.restore("image", block.size()) == 0, session.error());
  std::size_t blocks = 0;
  while (session.read(block.data()) == 0) {
    require(::write(null.get(), block.data(), block.size()) > 0, "null device");
    ++blocks;
  }
  require(blocks == work.blocks, session.error());
}

void readRaw(const Work& work) {
  dd(work, work.folder + "/raw", "/dev/null", "");
  checksumAsMuch(work);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int pairs = argc > 1 ? std::atoi(argv[1]) : 10;
    const std::size_t bytes = (argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 256) << 20;
    const orrery::test::TemporaryDirectory folder;
    require(orrery::platform::createHome(folder / "home", "bench").ok(), "no home");
    ::setenv("ORRERY_HOME", (folder / "home").c_str(), 1);  // NOLINT(concurrency-mt-unsafe): before any thread
    const MediaLibrary library(ORRERY_LIBOBK);
    std::printf("%-37s %11s %11s   %s\n", "", "ours", "dd", "ratio of times");
    for (const std::size_t blockSize : {std::size_t{16} << 10, std::size_t{64} << 10, std::size_t{1} << 20}) {
      const Work work{library, folder.path(), blockSize, bytes / blockSize};
      const std::string name = "blocks of " + std::to_string(blockSize >> 10) + " KiB, ";
      compare((name + "written").c_str(), pairs, [&] { writeOurs(work); }, [&] { writeRaw(work); });
      compare((name + "read").c_str(), pairs, [&] { readOurs(work); }, [&] { readRaw(work); });
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
}
