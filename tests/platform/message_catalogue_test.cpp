#include <gtest/gtest.h>

#include "orrery/platform/home.h"

namespace orrery::test {
namespace {

using platform::messageText;

TEST(MessageCatalogue, EveryKnownCodeHasAFullSentence) {
  const std::uint32_t codes[] = {0x12000022, 0x12000080, 0x1800003E, 0x5700001C, 0x57000020, 0x57000034, 0x57000035,
                                 0x5700004A, 0x5700004E, 0x57000056, 0x57000066, 0x57000067, 0x57000068, 0x5700006A,
                                 0x5700006B, 0x5700006C, 0x5700006D, 0x5700006F, 0x57000070, 0x57000071, 0x57000072,
                                 0x570000F5, 0x570000F6, 0x570000F7, 0x570000F8, 0x570000F9, 0x570000FA, 0x57000105};
  for (const std::uint32_t code : codes) {
    const std::string text = messageText(code, {"one", "two"});
    EXPECT_EQ(text.find("There is no text"), std::string::npos) << std::hex << code;
    EXPECT_EQ(text.find('%'), std::string::npos) << text;
    EXPECT_EQ(text.back(), '.') << text;
  }
}

TEST(MessageCatalogue, ArgumentsStandWhereTheSentenceWantsThem) {
  const std::string vanished = messageText(0x57000020, {"shop,crm", "default"});
  EXPECT_LT(vanished.find("shop,crm"), vanished.find("subclient default"));
  const std::string disabled = messageText(0x5700006D, {"Restore", "db1"});
  EXPECT_LT(disabled.find("db1"), disabled.find("Restore"));
}

TEST(MessageCatalogue, ArgumentsAreTakenAsTheyAre) {
  EXPECT_NE(messageText(0x57000056, {"100%1 %2 %%"}).find("(100%1 %2 %%)"), std::string::npos);
  EXPECT_NE(messageText(0x57000056, {}).find("(not given)"), std::string::npos);
}

TEST(MessageCatalogue, UnknownCodeSaysSoWithItsArguments) {
  EXPECT_EQ(messageText(0xdeadbeef, {}), "There is no text for the message 0xdeadbeef.");
  EXPECT_EQ(messageText(0, {"a", "b"}), "There is no text for the message 0x00000000; its arguments are: a, b.");
}

}  // namespace
}  // namespace orrery::test
