#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/InstanceRegistration.h"

namespace orrery::mysql {
namespace {

SeenServer record(std::string name, std::string socket, std::string port, std::string data,
                  std::vector<std::string> ports = {}, std::vector<std::string> folders = {}, std::string claim = {}) {
  MysqlInstanceInfo info{"root", std::move(socket), std::move(data), "/usr/bin", std::move(port), "", std::move(name)};
  return {std::move(info), std::move(ports), std::move(folders), std::move(claim)};
}

std::vector<std::string> decisions(const std::vector<SeenServer>& records, const std::vector<KnownInstance>& known) {
  std::vector<std::string> shown;
  for (const RegistrationDecision& decision : planRegistration(records, known)) {
    const char* const kinds[] = {"add ", "known ", "doubtful "};
    shown.push_back(kinds[static_cast<int>(decision.kind)] + decision.name);
  }
  return shown;
}

TEST(Registration, Decisions) {
  const struct {
    const char* name;
    std::vector<SeenServer> records;
    std::vector<KnownInstance> known;
    std::vector<std::string> decisions;
  } table[] = {
      {"new", {record("h_1", "/s", "1", "/d")}, {}, {"add h_1"}},
      {"same_socket_under_another_name", {record("h_1", "/s", "1", "/d")}, {{"shop", "/s", "", ""}}, {"known shop"}},
      {"same_port_and_data_directory",
       {record("h_1", "/moved", "1", "/d/")},
       {{"shop", "10.0.0.1:1", "1", "/d"}},
       {"known shop"}},
      {"same_port_alone_is_another", {record("h_1", "/s", "1", "/d")}, {{"h_1", "/t", "1", "/e"}}, {"add h_1_1"}},
      {"same_data_directory_alone_is_another", {record("h_1", "/s", "1", "/d")}, {{"x", "/t", "2", "/d"}}, {"add h_1"}},
      {"empty_texts_are_not_the_same",
       {record("h_", "", "1", ""), record("h_1", "/s", "", "")},
       {{"x", "", "1", ""}, {"y", "", "", ""}},
       {"doubtful h_", "add h_1"}},
      {"first_free_number",
       {record("h_1", "/s", "1", "/d")},
       {{"h_1", "/a", "", ""}, {"h_1_1", "/b", "", ""}, {"h_1_3", "/c", "", ""}},
       {"add h_1_2"}},
      {"two_of_one_name_in_one_pass",
       {record("h_3306", "/a", "3306", ""), record("h_3306", "/b", "3306", "")},
       {},
       {"add h_3306", "add h_3306_1"}},
      {"script_and_its_server_are_one",
       {record("h_1", "/s", "1", "/d"), record("h_1", "/s", "1", "/d")},
       {},
       {"add h_1", "known h_1"}},
      {"same_socket_but_all_else_another",
       {record("h_1", "/s", "1", "/d")},
       {{"x", "/s", "2", "/e"}},
       {"doubtful h_1"}},
      {"same_socket_and_one_of_the_others", {record("h_1", "/s", "1", "/d")}, {{"x", "/s", "2", "/d"}}, {"known x"}},
      {"known_by_what_was_set_right_by_hand",
       {record("h_1", "/s", "1", "/logs/", {"3"}, {"/d"})},
       {{"x", "10.0.0.1:3", "3", "/d"}},
       {"known x"}},
      {"claims_are_not_added_and_hide_nobody",
       {record("h_1", "/s", "1", "/d", {}, {}, "/x is another's"), record("h_1", "/s", "1", "/d")},
       {},
       {"doubtful h_1", "add h_1"}},
      {"without_a_socket", {record("h_1", "", "1", "/d")}, {}, {"add h_1"}},
      {"without_a_data_directory", {record("h_1", "/s", "1", "")}, {}, {"add h_1"}},
      {"slashes_are_a_data_directory", {record("h_1", "", "1", "//")}, {{"x", "", "1", "/"}}, {"known x"}},
  };
  for (const auto& row : table) EXPECT_EQ(decisions(row.records, row.known), row.decisions) << row.name;
}

}  // namespace
}  // namespace orrery::mysql
