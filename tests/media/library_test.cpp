// The library as a backup program uses it.

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>

#include <gmock/gmock.h>

#include "media_test.h"

namespace orrery::test {
namespace {

using namespace media;
namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::FieldsAre;

using LibraryTest = MediaTest;

TEST_F(LibraryTest, ImagesReadBackInAnyBlockSizeThatFits) {
  OpenSession session(library_);
  for (const std::size_t size : {1, 7, 512, 4096, 65536, 300000, 1 << 20, (1 << 20) + 4096}) {
    for (const std::size_t count : {0, 1, 3, 20}) {
      const std::string name = std::to_string(size) + "x" + std::to_string(count);
      SCOPED_TRACE(name);
      const std::string text = pattern(size * count, static_cast<unsigned>(size + count));
      ASSERT_EQ(session.put(name, text, size), 0U) << session.error();
      for (const std::size_t readSize : {size, std::size_t{1}, std::size_t{1 << 20}, size * 4, size * 5}) {
        if (text.size() % readSize != 0 || (readSize == 1 && text.size() > 100000)) continue;
        std::string back = "other";
        ASSERT_EQ(session.get(name, readSize, back), 0U) << session.error();
        ASSERT_TRUE(back == text) << "in blocks of " << readSize;
      }
    }
  }
  EXPECT_TRUE(failedWith(session.restore("512x3", 1024), session, 7501, "in the blocks of 512 bytes"));
  std::string text;
  EXPECT_EQ(session.get("512x3", 512, text), 0U) << "the session goes on";
}

TEST_F(LibraryTest, AnImageIsEnteredWithItsJobAndPlace) {
  setThreadCommandLine("-j 17 -a " + std::to_string(instance_) + ":0 -at 104 -t 2");
  OpenSession session(library_);
  ASSERT_EQ(session.put("1_17_5", pattern(3000), 1000), 0U) << session.error();
  const std::int64_t now = ::time(nullptr);
  EXPECT_THAT(records("1_17_5"), ElementsAre(FieldsAre(_, backupSet_, subclient_, 17, 104, 2, "1_17_5",
                                                       testing::AllOf(testing::Ge(now - 60), testing::Le(now)), 3000)));
  struct stat status {};
  ASSERT_EQ(::stat((media() + "/1_17_5").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(LibraryTest, PlacesComeFromTheEnvironment) {
  platform::Id other = 0, second = 0;
  ASSERT_TRUE(succeeded(open()->inventory->addSubclient(backupSet_, "second", second)));
  platform::Client own;
  ASSERT_TRUE(succeeded(open()->inventory->ownClient(own)));
  ASSERT_TRUE(succeeded(open()->inventory->addInstance({0, own.id, 104, "db2", {}}, other)));
  const std::string one = std::to_string(instance_), two = std::to_string(other), sub = std::to_string(second);
  const struct {
    const char* what;
    std::string line, client, instance;
    platform::Id subclient;
    const char* problem;
  } cases[] = {
      {"a subclient", "-a " + one + ":" + sub, "", "", second, nullptr},
      {"an instance by name", "-j 5", "", "db1", subclient_, nullptr},
      {"an instance by name and client", "-j 5", "thisclient", "db1", subclient_, nullptr},
      {"the number counts before the name", "-a " + one + ":0", "", "db2", subclient_, nullptr},
      {"nothing at all", "", "", "", 0, nullptr},
      {"no such instance", "-a 99:0", "", "", 0, "instance 99"},
      {"no such subclient", "-a " + one + ":99", "", "", 0, "subclient"},
      {"a subclient of another", "-a " + two + ":" + sub, "", "", 0, "is none of instance"},
      {"no such name", "", "", "db3", 0, "\"db3\""},
      {"no such client", "", "nobody", "db1", 0, "\"nobody\""},
      {"a line that cannot be read", "-j x", "", "", 0, "\"-j x\" cannot stand in it"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    setThreadCommandLine(test.line);
    ::setenv("DzSrcClientName", test.client.c_str(), 1);
    ::setenv("DzMySQLSBTInstance", test.instance.c_str(), 1);
    MediaSession session(library_);
    unsigned long code = session.begin();
    if (code == 0) code = session.put(test.what, "x", 1);
    if (test.problem != nullptr) {
      EXPECT_TRUE(failedWith(code, session, 7501, test.problem));
      continue;
    }
    ASSERT_EQ(code, 0U) << session.error();
    EXPECT_THAT(records(test.what),
                ElementsAre(FieldsAre(_, test.subclient == 0 ? 0 : backupSet_, test.subclient, _, _, _, _, _, _)));
  }
}

TEST_F(LibraryTest, NamesNeverLeaveTheMediaFolder) {
  OpenSession session(library_);
  const std::string names[] = {"..",       "../outside",          "/tmp/outside",   "a/b",
                               ".new-1-1", std::string(511, '/'), "caf\xc3\xa9\xff"};
  for (const std::string& name : names) {
    ASSERT_EQ(session.put(name, name, 1), 0U) << session.error();
    std::string text;
    ASSERT_EQ(session.get(name, 1, text), 0U) << session.error();
    EXPECT_EQ(text, name);
  }
  EXPECT_EQ(mediaFiles().size(), std::size(names));
  EXPECT_FALSE(fs::exists(home() + "/outside"));
  for (const std::string& name : names) EXPECT_EQ(session.remove(name), 0U) << session.error();
  EXPECT_TRUE(mediaFiles().empty());
  EXPECT_TRUE(failedWith(session.backup(std::string(512, 'a'), 1), session, 7501, "it may have 511"));
  EXPECT_TRUE(failedWith(session.backup("", 1), session, 7501, "without a name"));
}

TEST_F(LibraryTest, LinksInTheMediaFolderAreNotFollowed) {
  writeFile(folder_ / "outside", "somebody's");
  fs::create_symlink(folder_ / "outside", media() + "/image");
  OpenSession session(library_);
  EXPECT_EQ(session.backup("image", 1), 7503U);
  EXPECT_TRUE(failedWith(session.restore("image", 1), session, 7501, "is a link and no image"));
  EXPECT_EQ(session.remove("image"), 0U);
  EXPECT_EQ(readFile(folder_ / "outside"), "somebody's");
  fs::create_directory(media() + "/image");
  EXPECT_TRUE(failedWith(session.restore("image", 1), session, 7501, "is a folder and no image"));
  EXPECT_TRUE(failedWith(session.remove("image"), session, 7501, "is a folder and no image"));
}

TEST_F(LibraryTest, ImagesAreDescribed) {
  OpenSession session(library_);
  ASSERT_EQ(session.put("one", pattern(2000), 1000), 0U);
  const auto list = session.describe({"none", "one"});
  ASSERT_EQ(list.size(), 9U) << session.error();
  EXPECT_EQ(list[0].type, infoName);
  EXPECT_STREQ(static_cast<char*>(list[0].value), "none");
  EXPECT_EQ(list[1].type, infoNotFound);
  EXPECT_EQ(list[2].type, infoName);
  EXPECT_STREQ(static_cast<char*>(list[2].value), "one");
  std::map<Ulong, void*> told;
  for (const SbtEntry& entry : list) told[entry.type] = entry.value;
  EXPECT_EQ(*static_cast<Ulong*>(told.at(infoMethod)), methodStream);
  EXPECT_LE(static_cast<std::int64_t>(*static_cast<Ulong*>(told.at(infoCreated))), records("one")[0].created);
  EXPECT_STREQ(static_cast<char*>(told.at(infoComment)), "incremental, job 0, 2000 bytes");
  EXPECT_TRUE(session.describe({}).empty());
}

TEST_F(LibraryTest, RemovalTakesFileAndRecord) {
  OpenSession session(library_);
  ASSERT_EQ(session.put("image", "x", 1), 0U);
  ASSERT_EQ(session.remove("image"), 0U);
  EXPECT_TRUE(mediaFiles().empty());
  EXPECT_TRUE(records("image").empty());
  EXPECT_TRUE(failedWith(session.remove("image"), session, 7502, "there is no image image"));
  EXPECT_EQ(session.restore("image", 1), 7502U);
  EXPECT_EQ(session.put("image", "y", 1), 0U) << "the name is free again";
  fs::remove(media() + "/image");
  EXPECT_EQ(session.put("image", "zz", 1), 0U) << session.error();
  ASSERT_EQ(records("image").size(), 1U) << "the record of what was removed by hand is gone";
  EXPECT_EQ(records("image")[0].size, 2);
}

TEST_F(LibraryTest, AnImageIsNeverReplaced) {
  OpenSession first(library_), second(library_);
  ASSERT_EQ(first.backup("image", 1), 0U);
  ASSERT_EQ(second.backup("image", 1), 0U);
  ASSERT_EQ(first.write("1"), 0U);
  ASSERT_EQ(second.write("2"), 0U);
  ASSERT_EQ(second.close(), 0U);
  EXPECT_TRUE(failedWith(first.close(), first, 7503, "exists already"));
  EXPECT_EQ(first.backup("image", 1), 7503U);
  std::string text;
  EXPECT_EQ(first.get("image", 1, text), 0U);
  EXPECT_EQ(text, "2");
  EXPECT_EQ(records("image").size(), 1U);
  EXPECT_EQ(mediaFiles(), std::vector<std::string>{"image"});
}

TEST_F(LibraryTest, WritersAtTheSameTimeAndOneWinnerPerName) {
  constexpr int writers = 6;
  inChildrenTogether(writers, [&](int number) {
    MediaSession session(library_);
    if (session.begin() != 0) return 1;
    const std::string text = pattern(1 << 20, static_cast<unsigned>(number));
    if (session.put("own" + std::to_string(number), text, 4096) != 0) return 2;
    const unsigned long shared = session.put("shared", text, 65536);
    return shared == 0 || shared == 7503 ? 0 : 3;
  });
  OpenSession session(library_);
  std::string text;
  for (int number = 0; number < writers; ++number) {
    ASSERT_EQ(session.get("own" + std::to_string(number), 1 << 20, text), 0U);
    EXPECT_TRUE(text == pattern(1 << 20, static_cast<unsigned>(number)));
  }
  EXPECT_EQ(session.get("shared", 65536, text), 0U);
  EXPECT_EQ(records("shared").size(), 1U);
  EXPECT_EQ(mediaFiles().size(), writers + 1U);
}

TEST_F(LibraryTest, GivenUpImagesLeaveNothing) {
  {
    OpenSession session(library_);
    ASSERT_EQ(session.backup("image", 4), 0U);
    ASSERT_EQ(session.write("abcd"), 0U);
    EXPECT_EQ(session.close(flagGiveUp), 0U);
    EXPECT_TRUE(mediaFiles().empty());
    ASSERT_EQ(session.backup("image", 4), 0U);
    EXPECT_EQ(session.end(flagGiveUp), 0U);
  }
  EXPECT_TRUE(mediaFiles().empty());
  OpenSession session(library_);
  ASSERT_EQ(session.backup("image", 4), 0U);
  EXPECT_TRUE(failedWith(session.end(), session, 7501, "is given up"));
  EXPECT_TRUE(mediaFiles().empty());
  EXPECT_TRUE(records("image").empty());
}

TEST_F(LibraryTest, CallsInTheWrongOrderFailAndTheSessionGoesOn) {
  MediaSession session(library_);
  char block[4] = {};
  EXPECT_TRUE(failedWith(session.write(block), session, 7501, "call sbtinit2 first"));
  EXPECT_EQ(session.end(), 7501U);
  ASSERT_EQ(session.begin(), 0U);
  EXPECT_TRUE(failedWith(session.begin(), session, 7501, "begun already"));
  EXPECT_TRUE(failedWith(session.write(block), session, 7501, "call sbtbackup first"));
  EXPECT_TRUE(failedWith(session.read(block), session, 7501, "call sbtrestore first"));
  EXPECT_TRUE(failedWith(session.close(), session, 7501, "no image is open"));
  EXPECT_EQ(session.backup("image", 0), 7501U);
  EXPECT_EQ(session.backup("image", 1UL << 40), 7501U);
  ASSERT_EQ(session.backup("image", 4), 0U);
  EXPECT_TRUE(failedWith(session.backup("another", 4), session, 7501, "still open"));
  EXPECT_TRUE(failedWith(session.restore("image", 4), session, 7501, "still open"));
  EXPECT_EQ(session.read(block), 7501U);
  ASSERT_EQ(session.write(block), 0U);
  ASSERT_EQ(session.close(), 0U);
  EXPECT_EQ(session.close(), 7501U);
  ASSERT_EQ(session.restore("image", 4), 0U);
  EXPECT_EQ(session.write(block), 7501U);
  EXPECT_EQ(session.read(block), 0U);
  EXPECT_TRUE(failedWith(session.read(block), session, 7504, "ends"));
  EXPECT_EQ(session.read(block), 7504U);
  EXPECT_EQ(session.end(), 0U);
  EXPECT_EQ(session.end(), 7501U);
  ASSERT_EQ(session.begin(), 0U) << "the memory serves another session";
}

TEST_F(LibraryTest, NullArgumentsAndNamesOfTheFormerInterfaceFail) {
  const SbtFunctions& calls = library_.calls();
  OpenSession session(library_);
  void* const context = session.context();
  for (void* const memory : {static_cast<void*>(nullptr), static_cast<void*>(static_cast<char*>(context) + 1)}) {
    EXPECT_EQ(calls.sbtinit2(memory, 0, nullptr, nullptr), -1);
    EXPECT_EQ(calls.sbtbackup(memory, 0, "image", nullptr, 4, 0, 0, 0), -1);
    EXPECT_EQ(calls.sbterror(memory, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(calls.sbtend(memory, 0), -1);
  }
  ASSERT_EQ(session.put("whole", "abcd", 4), 0U);
  ASSERT_EQ(session.restore("whole", 4), 0U);
  EXPECT_TRUE(failedWith(calls.sbtread2(context, 0, nullptr) == -1 ? 7501 : 0, session, 7501, "no block"));
  ASSERT_EQ(session.close(), 0U);
  ASSERT_EQ(session.backup("image", 4), 0U);
  EXPECT_TRUE(failedWith(calls.sbtwrite2(context, 0, nullptr) == -1 ? 7501 : 0, session, 7501, "no block"));
  ASSERT_EQ(session.close(flagGiveUp), 0U);
  SbtEntry* list = nullptr;
  const char* const names[] = {"image", nullptr};
  EXPECT_EQ(calls.sbtbackup(context, 0, nullptr, nullptr, 4, 0, 0, 0), -1);
  EXPECT_EQ(calls.sbtrestore(context, 0, nullptr, 4), -1);
  EXPECT_EQ(calls.sbtinfo2(context, 0, nullptr, &list), -1);
  EXPECT_EQ(calls.sbtinfo2(context, 0, names, nullptr), -1);
  EXPECT_EQ(calls.sbtremove2(context, 0, nullptr), -1);
  EXPECT_EQ(calls.sbtcommand(context, 0, nullptr), -1);
  EXPECT_EQ(calls.sbterror(context, 0, nullptr, nullptr, nullptr), 0);
  SbtError error{};
  EXPECT_EQ(reinterpret_cast<decltype(&sbtinit)>(library_.symbol("sbtinit"))(&error, nullptr, nullptr), -1);
  EXPECT_EQ(error.code, 7110);
  EXPECT_EQ(calls.proxyCopy[0], nullptr);
  for (const char* name : {"sbtopen", "sbtread", "sbtwrite", "sbtclose", "sbtinfo", "sbtremove"})
    EXPECT_EQ(reinterpret_cast<int (*)(SbtError*, int)>(library_.symbol(name))(nullptr, 0), -1) << name;
}

TEST_F(LibraryTest, LeftoversOfTheDeadGoThoseOfTheLivingStay) {
  EXPECT_EQ(inChild([&] {
              auto* const session = new MediaSession(library_);  // never ended
              if (session->begin() != 0 || session->backup("dead", 1) != 0) return 1;
              ::_exit(0);
            }),
            0);
  ASSERT_EQ(mediaFiles().size(), 1U);
  OpenSession living(library_);
  EXPECT_TRUE(mediaFiles().empty());
  ASSERT_EQ(living.backup("living", 1), 0U);
  writeFile(media() + "/somebody's", "x");
  fs::create_directory(media() + "/.new-1-1");
  OpenSession later(library_);
  EXPECT_EQ(mediaFiles().size(), 3U);
  EXPECT_EQ(living.close(), 0U);
}

TEST_F(LibraryTest, DamageIsRefused) {
  OpenSession session(library_);
  const std::size_t blocks = 5, size = 80000;  // three blocks make a chunk
  const std::string text = pattern(blocks * size);
  ASSERT_EQ(session.put("image", text, size), 0U);
  const std::string path = media() + "/image";
  const std::string good = readFile(path);
  ASSERT_EQ(good.size(), 4096 + text.size() + 2 * 8 + 64);
  std::string back;
  // Cut at every place that means something, and a little more.
  for (const std::size_t cut : {std::size_t{0}, std::size_t{1}, std::size_t{4095}, std::size_t{4096}, size,
                                good.size() - 80, good.size() - 64, good.size() - 1}) {
    writeFile(path, good.substr(0, cut));
    EXPECT_TRUE(failedWith(session.restore("image", size), session, 7501, "use another backup")) << cut;
  }
  writeFile(path, good + "x");
  EXPECT_EQ(session.restore("image", size), 7501U);
  writeFile(path, good.substr(0, 4096) + good.substr(4096 + size));
  EXPECT_EQ(session.restore("image", size), 7501U) << "a block is missing";
  const auto damage = [&](std::size_t at, int bits) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ bits);
    writeFile(path, bad);
  };
  // In each part of its frame: header, sums of the chunks, trailer.
  for (const std::size_t at :
       {std::size_t{0}, std::size_t{4095}, good.size() - 80, good.size() - 65, good.size() - 64, good.size() - 1}) {
    damage(at, 128);
    EXPECT_EQ(session.restore("image", size), 7501U) << at;
  }
  // In the data: what lies before is handed out, the chunk with the damage is not, and nothing behind it.
  damage(4096 + 4 * size, 1);
  EXPECT_EQ(session.get("image", size, back), 7501U);
  EXPECT_TRUE(back == text.substr(0, 3 * size));
  EXPECT_NE(session.error().find("damaged between the bytes 240000 and 400000"), std::string::npos) << session.error();
  ASSERT_EQ(session.restore("image", size), 0U);
  std::string block(size, '\0');
  for (int i = 0; i < 3; ++i) EXPECT_EQ(session.read(block.data()), 0U);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(session.read(block.data()), 7501U);
  EXPECT_EQ(session.close(), 0U);
  EXPECT_TRUE(session.describe({"image"}).size() == 7) << "what describes it is whole";
  // Another image's file under this name.
  ASSERT_EQ(session.put("other", "x", 1), 0U);
  writeFile(path, good.substr(0, 5000));
  EXPECT_EQ(session.describe({"image", "other"}).size(), 2U + 7U) << "the damaged one hides the other";
  writeFile(path, good);
  fs::copy_file(path, media() + "/other", fs::copy_options::overwrite_existing);
  EXPECT_TRUE(failedWith(session.restore("other", size), session, 7501, "holds another one"));
}

/// Where a large file takes the least time: in memory, when there is room for it and as much again.
std::string roomFor(std::uint64_t bytes) {
  struct statfs room {};
  if (::statfs("/dev/shm", &room) == 0 &&
      static_cast<std::uint64_t>(room.f_bavail) * static_cast<std::uint64_t>(room.f_bsize) > 2 * bytes)
    return "/dev/shm";
  return {};
}

/// ORRERY_TEST_IMAGE_MIB, 64 unless it is set.
std::uint64_t largeImageMiB() {
  const char* const text = ::getenv("ORRERY_TEST_IMAGE_MIB");
  return text == nullptr ? 64 : std::strtoull(text, nullptr, 10);
}

class LargeImage : public MediaTest {
 protected:
  LargeImage() : MediaTest(roomFor(largeImageMiB() << 20)) {}
};

TEST_F(LargeImage, ReadsBackAndIsAsLargeAsItSays) {
  OpenSession session(library_);
  std::string block = pattern(1 << 20), back(block.size(), '\0');
  const auto number = [&](std::uint64_t i) { std::memcpy(block.data() + (i & 0xFFFF0), &i, sizeof i); };
  const std::uint64_t blocks = largeImageMiB();
  ASSERT_EQ(session.backup("large", block.size()), 0U) << session.error();
  for (std::uint64_t i = 0; i < blocks; ++i) {
    number(i);
    ASSERT_EQ(session.write(block.data()), 0U) << session.error();
  }
  ASSERT_EQ(session.close(), 0U) << session.error();
  EXPECT_EQ(records("large").at(0).size, static_cast<std::int64_t>(blocks << 20));
  block = pattern(1 << 20);
  ASSERT_EQ(session.restore("large", block.size()), 0U) << session.error();
  for (std::uint64_t i = 0; i < blocks; ++i) {
    number(i);
    ASSERT_EQ(session.read(back.data()), 0U) << session.error();
    ASSERT_TRUE(back == block) << i;
  }
  EXPECT_EQ(session.read(back.data()), 7504U);
  RecordProperty("MiB", std::to_string(blocks));
}

}  // namespace
}  // namespace orrery::test
