#pragma once

#include <functional>
#include <thread>

#include "orrery/platform/instance_properties.h"

#include "sbt/sbt_fixture.h"
#include "support/client_library/stand_in_library.h"

namespace orrery::test {

/// In place of `mysqlbackup`: keeps its arguments, leaves a working copy, writes into the data directory that it is
/// told, fails for the image whose name stands in the file "failing", and for the one in "lasting" works until it is
/// asked to end, which it does well.
inline constexpr const char* standInProgram = R"sh(#!/bin/sh
folder=$(dirname "$(dirname "$0")")
for argument in "$@"; do
  case "$argument" in
    --datadir=*) data=${argument#--datadir=} ;;
    --backup-image=*) image=${argument#--backup-image=sbt:} ;;
    --backup-dir=*) mkdir -p "${argument#--backup-dir=}" && echo copy >"${argument#--backup-dir=}/copy" ;;
  esac
done
printf '%s|' "$@" >>"$folder/runs"
echo >>"$folder/runs"
if [ "$image" = "$(cat "$folder/failing" 2>/dev/null)" ]; then
  echo 'ERROR: the image is broken' >&2
  exit 1
fi
if [ "$image" = "$(cat "$folder/lasting" 2>/dev/null)" ]; then
  trap 'exit 0' TERM
  : >"$folder/begun"
  while :; do sleep 0.02; done
fi
[ -z "$data" ] || { mkdir -p "$data" && echo "$image" >>"$data/applied"; }
)sh";

/// An instance with enterprise backup, and the stand-in.
class DriverTest : public SbtTest {
 protected:
  void SetUp() override {
    SbtTest::SetUp();
    writeProgram();
    backend_.setSetting("MySQL", "sLibPath", library_.path());
    namespace property = platform::property;
    if (instance_ == 0) {
      instance_ = backend_.addInstance("db1", {{property::saUser, "agent"},
                                               {property::saPassword, "sealed:secret"},
                                               {property::socketFile, "/run/s"},
                                               {property::mebEnabled, "1"},
                                               {property::mebBinPath, bin_},
                                               {property::configFile, "/etc/my.cnf"},
                                               {property::dataDirOwner, dataDirProperty()}});
    }
    jobOfProcess_ = std::make_unique<platform::ScopedJob>(jobId_);
  }
  void TearDown() override { EXPECT_THAT(backend_.leftovers(), testing::IsEmpty()) << "a session left its file"; }

  void writeProgram() const {
    std::filesystem::create_directories(bin_);
    writeFile(bin_ + "/mysqlbackup", standInProgram, 0755);
  }
  std::string dataDirProperty() const { return "datadir:" + data_ + ";usergroup:" + user_ + "#" + user_ + ";"; }
  void setProperty(const std::string& key, const std::string& value) const {
    ASSERT_TRUE(backend_.services()->inventory->writeProperties(instance_, {{key, value}}).ok());
  }
  /// With words for this test's folders.
  std::string plain(std::string text) const {
    const auto replace = [&text](const std::string& what, const std::string& word) {
      for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += word.size())
        text.replace(at, what.size(), word);
    };
    replace(backend_.directory(), "HOME");
    replace(folder_.path(), "T");
    return text;
  }
  /// The first command that was run.
  std::string ranCommand() {
    const std::string begin = "5: Running command [";
    for (const std::string& line : said("MySqlSBTUtils::runCommand"))
      if (line.rfind(begin, 0) == 0) return plain(line.substr(begin.size(), line.size() - begin.size() - 1));
    return "nothing";
  }
  bool isSaid(const std::string& text) { return backend_.log().contains(text); }

  const TemporaryDirectory folder_;
  const std::string bin_ = folder_ / "bin";
  const std::string data_ = folder_ / "data";
  const std::string user_ = std::to_string(getuid());
  StandInLibrary library_{"unknown"};
  std::function<void()> atSleep_ = [] {};
  /// Every sleep is short, however long it says it is.
  const platform::ScopedServices short_{withSleep(backend_.services(), [this](std::int64_t) {
    atSleep_();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  })};
  platform::Id instance_ = 0;
  std::unique_ptr<platform::ScopedJob> jobOfProcess_;
};

}  // namespace orrery::test
