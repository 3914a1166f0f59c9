#include <sys/stat.h>

#include <filesystem>

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
namespace fs = std::filesystem;

class VaultTest : public OpenHomeTest {
 protected:
  std::string key() const { return inHome("vault.key"); }
  PasswordVault& vault() { return *services_->vault; }
};

TEST_F(VaultTest, SealedTextHidesThePasswordAndDiffersEachTime) {
  std::string first, second;
  ASSERT_TRUE(succeeded(vault().seal("hunter2", first)));
  ASSERT_TRUE(succeeded(vault().seal("hunter2", second)));
  EXPECT_EQ(first.rfind("v1:", 0), 0U);
  EXPECT_NE(first, second);
  EXPECT_EQ(first.find("hunter2"), std::string::npos);
}

TEST_F(VaultTest, EveryChangedCharacterIsNoticed) {
  std::string sealed;
  ASSERT_TRUE(succeeded(vault().seal("secret", sealed)));
  for (std::size_t i = 0; i < sealed.size(); ++i) {
    std::string changed = sealed;
    changed[i] = changed[i] == 'A' ? 'B' : 'A';
    std::string plain = "before";
    EXPECT_TRUE(failed(vault().open(changed, plain), statusFailed, "set the password anew")) << changed;
    EXPECT_EQ(plain, "before");
  }
  for (const std::string& text : {sealed.substr(0, sealed.size() - 1), sealed + "A", std::string("v1:"),
                                  std::string("v1:AAAA"), "v2" + sealed.substr(2)}) {
    std::string plain;
    EXPECT_TRUE(failed(vault().open(text, plain), statusFailed)) << text;
  }
}

TEST_F(VaultTest, AnotherHomesTextIsRefused) {
  ASSERT_TRUE(succeeded(createHome(folder_ / "other", "other")));
  std::shared_ptr<const Services> other;
  ASSERT_TRUE(succeeded(openHome(folder_ / "other", other)));
  std::string sealed, plain;
  ASSERT_TRUE(succeeded(other->vault->seal("secret", sealed)));
  EXPECT_TRUE(failed(vault().open(sealed, plain), statusFailed, "set the password anew"));
}

TEST_F(VaultTest, KeyThatCannotBeTrustedIsRefused) {
  std::string sealed;
  ASSERT_TRUE(succeeded(vault().seal("secret", sealed)));
  const std::string bytes = readFile(key());
  const auto refused = [&](const char* part) {
    std::string text;
    EXPECT_TRUE(failed(vault().open(sealed, text), statusFailed, part));
    EXPECT_TRUE(failed(vault().seal("x", text), statusFailed, part));
    EXPECT_TRUE(text.empty());
  };
  ASSERT_EQ(::chmod(key().c_str(), 0640), 0);
  refused("0600");
  ASSERT_EQ(::chmod(key().c_str(), 0604), 0);
  refused("0600");
  ASSERT_EQ(::chmod(key().c_str(), 0600), 0);
  writeFile(key(), bytes.substr(1), 0600);
  refused("32 bytes");
  writeFile(key(), bytes + "x", 0600);
  refused("32 bytes");
  fs::remove(key());
  refused("vault.key");
  writeFile(folder_ / "elsewhere", bytes, 0600);
  fs::create_symlink(folder_ / "elsewhere", key());
  refused("vault.key");
  fs::remove(key());
  ASSERT_EQ(::mkfifo(key().c_str(), 0600), 0);
  refused("not a file");
}

}  // namespace
}  // namespace orrery::test
