// What goes on around the library: which home it works in, full disks, a busy store, other accounts, the caller's
// threads.

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include <sqlite3.h>

#include "orrery/platform/home.h"

#include "media_test.h"
#include "support/program.h"

namespace orrery::test {
namespace {

using namespace media;
namespace fs = std::filesystem;

using SurroundingsTest = MediaTest;

TEST_F(SurroundingsTest, TheFolderItWasLoadedThroughIsTheHome) {
  // A file of its own: the loader knows the other one by another name already.
  fs::copy_file(ORRERY_LIBOBK, folder_ / "copy.so");
  fs::create_symlink(folder_ / "copy.so", home() + "/libobk.so");
  ::setenv("ORRERY_HOME", "/nowhere", 1);
  const MediaLibrary linked(home() + "/libobk.so");
  OpenSession session(linked);
  EXPECT_EQ(session.put("image", "x", 1), 0U) << session.error();
  EXPECT_EQ(mediaFiles(), std::vector<std::string>{"image"});
  EXPECT_EQ(session.end(), 0U);
  fs::remove_all(media());
  EXPECT_TRUE(failedWith(session.begin(), session, 7501, "media missing")) << "and no other home is used instead";
}

TEST_F(SurroundingsTest, ARelativeHomeStaysWhereItWasWhenTheLibraryWasLoaded) {
  EXPECT_EQ(inChild([&] {
              fs::copy_file(ORRERY_LIBOBK, home() + "/libobk.so");
              fs::current_path(folder_.path());
              const MediaLibrary byPath("home/libobk.so");
              ::setenv("ORRERY_HOME", "home", 1);
              const MediaLibrary byDefault(ORRERY_LIBOBK);
              fs::current_path("/");
              MediaSession one(byPath), two(byDefault);
              return one.begin() == 0 && two.begin() == 0 && one.put("one", "x", 1) == 0 &&
                             two.put("two", "x", 1) == 0 && mediaFiles().size() == 2
                         ? 0
                         : 1;
            }),
            0);
}

TEST_F(SurroundingsTest, AMissingHomeIsNamed) {
  ::setenv("ORRERY_HOME", (folder_ / "none").c_str(), 1);
  const MediaLibrary library(ORRERY_LIBOBK);
  MediaSession session(library);
  EXPECT_TRUE(failedWith(session.begin(), session, 7501, "run `orrery-mysql init`"));
}

TEST_F(SurroundingsTest, AFullDiskIsToldAndLeavesNothing) {
  OpenSession session(library_);
  const std::string block(1 << 20, 'x');
  ASSERT_EQ(session.backup("image", block.size()), 0U);
  {
    const FullDisk full(1 << 21);
    ::signal(SIGXFSZ, SIG_DFL);  // as most programs leave it; given back with the limit
    ASSERT_EQ(session.write(block.data()), 0U);
    EXPECT_TRUE(failedWith(session.write(block.data()), session, 7501, "make room on the disk"));
    EXPECT_TRUE(failedWith(session.write(block.data()), session, 7501, "an earlier block"));
  }
  EXPECT_TRUE(failedWith(session.close(), session, 7501, "given up"));
  EXPECT_TRUE(mediaFiles().empty());
  EXPECT_TRUE(records("image").empty());
  {
    const FullDisk full(0);
    EXPECT_TRUE(failedWith(session.backup("image", 1), session, 7501, "make room on the disk"));
  }
  EXPECT_TRUE(mediaFiles().empty());
  ASSERT_EQ(session.end(), 0U);
  const FullDisk full(0);
  EXPECT_TRUE(failedWith(session.begin(), session, 7501, "make room")) << "the store, too";
}

/// Makes the media folder of this process a small disk of its own; false where the system does not let it.
bool mountSmallDisk(const std::string& path) {
  return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", path.c_str(), "tmpfs", 0, "size=4m,mode=0700") == 0;
}

TEST_F(SurroundingsTest, ADiskThatRunsFullHasItsRoomBackAtOnce) {
  EXPECT_EQ(inChild([&] {
              const bool mounted = mountSmallDisk(media());
              MediaSession session(library_);
              const std::string block(1 << 20, 'x');
              if (session.begin() != 0 || session.backup("large", block.size()) != 0) return 1;
              std::optional<FullDisk> limited;
              if (!mounted) limited.emplace(4 << 20);
              unsigned long code = 0;
              for (int i = 0; code == 0 && i < 8; ++i) code = session.write(block.data());
              if (!failedWith(code, session, 7501, "make room on the disk")) return 2;
              if (session.close() != 7501) return 3;
              limited.reset();
              return session.put("small", block + block, block.size()) == 0 && mediaFiles().size() == 1 ? 0 : 4;
            }),
            0);
}

TEST_F(SurroundingsTest, ARecordThatCannotBeEnteredTakesTheImageAway) {
  OpenSession session(library_);
  ASSERT_EQ(session.backup("image", 1), 0U);
  ASSERT_EQ(session.write("x"), 0U);
  {
    const FullDisk full(6000);  // enough for the image, and nothing for the store
    EXPECT_TRUE(failedWith(session.close(), session, 7501, "in the archive"));
  }
  EXPECT_TRUE(mediaFiles().empty());
  EXPECT_EQ(session.put("image", "x", 1), 0U) << session.error();
}

TEST_F(SurroundingsTest, AFolderThatCannotBeWrittenIsTold) {
  // Root may write anywhere.
  EXPECT_EQ(asOrdinaryUser([&] {
              const TemporaryDirectory own;
              if (!platform::createHome(own / "home", "thisclient").ok()) return 1;
              ::setenv("ORRERY_HOME", (own / "home").c_str(), 1);
              setThreadCommandLine("");
              const MediaLibrary library(ORRERY_LIBOBK);
              MediaSession session(library);
              if (session.begin() != 0 || session.put("kept", "x", 1) != 0) return 2;
              const std::string folder = own / "home/media";
              fs::permissions(folder, fs::perms::owner_write, fs::perm_options::remove);
              if (!failedWith(session.backup("other", 1), session, 7501, "writable for this account")) return 3;
              if (!failedWith(session.remove("kept"), session, 7501, "cannot remove")) return 4;
              fs::permissions(folder, fs::perms::owner_write, fs::perm_options::add);
              std::shared_ptr<const platform::Services> services;
              std::vector<platform::ArchiveFile> files;
              const bool known = platform::openHome(own / "home", services).ok() &&
                                 services->archive->findFiles(104, "kept", files).ok() && files.size() == 1;
              return known ? 0 : 5;
            }),
            0);
}

TEST_F(SurroundingsTest, AHomeThatOthersCanWriteIsRefused) {
  fs::permissions(home(), fs::perms::others_write, fs::perm_options::add);
  MediaSession session(library_);
  EXPECT_TRUE(failedWith(session.begin(), session, 7501, "chmod go-w"));
}

TEST_F(SurroundingsTest, TheHomeOfAnotherAccountIsToldWithItsOwner) {
  fs::permissions(folder_.path(), fs::perms::others_exec, fs::perm_options::add);
  const uid_t owner = ::geteuid();
  EXPECT_EQ(asOrdinaryUser([&] {
              MediaSession session(library_);
              const unsigned long code = session.begin();
              if (::geteuid() == owner) return code == 0 ? 0 : 1;
              return failedWith(code, session, 7501, "must run as the account that owns the home (user id 0)") ? 0 : 2;
            }),
            0);
}

/// Keeps the store of a home from being changed.
class BusyStore {
 public:
  explicit BusyStore(const std::string& home) {
    EXPECT_EQ(sqlite3_open((home + "/store.db").c_str(), &store_), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(store_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  }
  ~BusyStore() { sqlite3_close(store_); }
  BusyStore(const BusyStore&) = delete;
  BusyStore& operator=(const BusyStore&) = delete;

 private:
  sqlite3* store_ = nullptr;
};

TEST_F(SurroundingsTest, AFinishedImageWaitsForABusyStoreAndNobodyRemovesItMeanwhile) {
  OpenSession session(library_), other(library_);
  ASSERT_EQ(session.backup("image", 1), 0U);
  ASSERT_EQ(session.write("x"), 0U);
  std::optional<BusyStore> busy(std::in_place, home());
  const auto start = std::chrono::steady_clock::now();
  std::thread closing([&] { EXPECT_EQ(session.close(), 0U) << session.error(); });
  EXPECT_TRUE(waitUntil([&] { return fs::exists(media() + "/image"); }));
  EXPECT_TRUE(failedWith(other.remove("image"), other, 7501, "is being completed"));
  // Longer than any other change of the store waits.
  EXPECT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - start > std::chrono::milliseconds(10500); }));
  busy.reset();
  closing.join();
  EXPECT_EQ(records("image").size(), 1U);
  EXPECT_EQ(other.remove("image"), 0U) << other.error();
  EXPECT_TRUE(mediaFiles().empty());
}

TEST_F(SurroundingsTest, AThreadIsCancelledBehindItsCallAndNotInIt) {
  OpenSession session(library_);
  const std::function<void()> body = [&] {
    ::pthread_cancel(::pthread_self());
    EXPECT_EQ(session.put("image", "x", 1), 0U) << session.error();
    ::pthread_testcancel();
  };
  pthread_t thread{};
  ASSERT_EQ(::pthread_create(
                &thread, nullptr,
                [](void* what) -> void* {
                  (*static_cast<const std::function<void()>*>(what))();
                  return nullptr;
                },
                const_cast<std::function<void()>*>(&body)),
            0);
  void* result = nullptr;
  ASSERT_EQ(::pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_EQ(records("image").size(), 1U);
}

}  // namespace
}  // namespace orrery::test
