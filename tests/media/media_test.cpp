#include "media_test.h"

#include <stdlib.h>

#include "orrery/platform/home.h"
#include "orrery/platform/instance_properties.h"

namespace orrery::test {

using namespace platform;

namespace {

/// The library looks for its home when it is loaded.
std::string libraryFor(const std::string& home) {
  ::setenv("ORRERY_HOME", home.c_str(), 1);
  return ORRERY_LIBOBK;
}

}  // namespace

MediaTest::MediaTest(const std::string& parent) : folder_(parent), library_(libraryFor(home())) {}

void MediaTest::SetUp() {
  ASSERT_TRUE(succeeded(createHome(home(), "thisclient")));
  const auto services = open();
  ASSERT_NE(services, nullptr);
  Client own;
  ASSERT_TRUE(succeeded(services->inventory->ownClient(own)));
  ASSERT_TRUE(
      succeeded(services->inventory->addInstance({0, own.id, property::applicationTypeMySql, "db1", {}}, instance_)));
  std::vector<BackupSet> sets;
  ASSERT_TRUE(succeeded(services->inventory->listBackupSets(instance_, sets)));
  backupSet_ = sets.at(0).id;
  std::vector<SubclientRecord> subclients;
  ASSERT_TRUE(succeeded(services->inventory->listSubclients(backupSet_, subclients)));
  subclient_ = subclients.at(0).id;
  setThreadCommandLine("-a " + std::to_string(instance_) + ":0 -at 104 -t 2");
}

void MediaTest::TearDown() {
  for (const char* name : {"ORRERY_HOME", "ThreadCommandLine", "DzSrcClientName", "DzMySQLSBTInstance"})
    ::unsetenv(name);
}

std::shared_ptr<const Services> MediaTest::open() const {
  std::shared_ptr<const Services> services;
  EXPECT_TRUE(succeeded(openHome(home(), services)));
  return services;
}

void MediaTest::setThreadCommandLine(const std::string& line) {
  ::setenv("ThreadCommandLine", line.c_str(), 1);
}

std::vector<ArchiveFile> MediaTest::records(const std::string& name) const {
  std::vector<ArchiveFile> files;
  EXPECT_TRUE(succeeded(open()->archive->findFiles(property::applicationTypeMySql, name, files)));
  return files;
}

std::string MediaTest::pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  std::uint32_t state = seed * 2654435761U + 1;
  for (char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

::testing::AssertionResult failedWith(unsigned long code, MediaSession& session, unsigned long expected,
                                      const std::string& part) {
  const std::string text = session.error();
  if (code == expected && text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "code " << code << ": " << text;
}

}  // namespace orrery::test
