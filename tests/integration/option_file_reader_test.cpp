// Our idea of the option-file reader against the reader itself.

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "session/option_file.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::test::runProgram;

/// What a client would receive for the password of this file; the reader prints one argument a line.
std::string readByTheRealReader(const std::string& path) {
  const auto result = runProgram({"my_print_defaults", "--defaults-file=" + path, "client"});
  const std::string prefix = "--password=";
  if (result.output.rfind(prefix, 0) != 0) return "<nothing>";
  return result.output.substr(prefix.size(), result.output.size() - prefix.size() - 1);
}

TEST(OptionFileReader, AgreesOnWhichPasswordsComeBack) {
  const orrery::test::TemporaryDirectory place;
  const std::string alphabet = "ab \\'\"#;=n\t$ts";
  std::mt19937 random(20261121);
  std::uniform_int_distribution<std::size_t> letter(0, alphabet.size() - 1);
  std::uniform_int_distribution<int> length(0, 8);
  int survived = 0;
  for (int round = 0; round < 600; ++round) {
    std::string password;
    for (int left = length(random); left > 0; --left) password += alphabet[letter(random)];
    const std::string content = "[client]\npassword='" + password + "'\n";
    orrery::test::writeFile(place / "f.cnf", content, 0600);
    const bool comesBack = readByTheRealReader(place / "f.cnf") == password;
    EXPECT_EQ(orrery::mysql::givesBackPassword(content, password), comesBack) << "[" << password << "]";
    survived += comesBack ? 1 : 0;
  }
  EXPECT_GT(survived, 100);
  EXPECT_LT(survived, 580);
}

}  // namespace
