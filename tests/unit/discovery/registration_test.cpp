#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/InstanceRegistration.h"

namespace orrery::mysql {
namespace {

/// The words of each entry of a list; entries end with ";", a word "-" is empty.
std::vector<std::vector<std::string>> entriesOf(const std::string& list) {
  std::vector<std::vector<std::string>> entries;
  std::istringstream texts(list);
  for (std::string text; std::getline(texts, text, ';');) {
    std::istringstream words(text);
    entries.emplace_back();
    for (std::string word; words >> word;) entries.back().push_back(word == "-" ? "" : word);
  }
  return entries;
}

/// Of servers by name, socket, port and data directory, then a further port, a further folder and a claim.
std::string decisions(const std::string& servers, const std::string& instances) {
  std::vector<SeenServer> seen;
  for (auto& words : entriesOf(servers)) {
    seen.push_back({{"root", words.at(1), words.at(3), "/usr/bin", words.at(2), "", words.at(0)}, {}, {}, ""});
    if (words.size() > 4 && !words[4].empty()) seen.back().ports = {words[4]};
    if (words.size() > 5 && !words[5].empty()) seen.back().dataDirectories = {words[5]};
    if (words.size() > 6) seen.back().claimedBecause = words[6];
  }
  std::vector<KnownInstance> known;
  for (auto& words : entriesOf(instances)) known.push_back({words.at(0), words.at(1), words.at(2), words.at(3)});
  std::string shown;
  for (const RegistrationDecision& decision : planRegistration(seen, known)) {
    const char* const kinds[] = {"add ", "known ", "doubtful "};
    shown += (shown.empty() ? "" : ", ") + std::string(kinds[static_cast<int>(decision.kind)]) + decision.name;
  }
  return shown;
}

TEST(Registration, Decisions) {
  const struct {
    const char *name, *seen, *known, *decisions;
  } table[] = {
      {"new", "h_1 /s 1 /d", "", "add h_1"},
      {"same_socket_under_another_name", "h_1 /s 1 /d", "shop /s - -", "known shop"},
      {"same_port_and_data_directory", "h_1 /moved 1 /d/", "shop 10.0.0.1:1 1 /d", "known shop"},
      {"same_port_alone_is_another", "h_1 /s 1 /d", "h_1 /t 1 /e", "add h_1_1"},
      {"same_data_directory_alone_is_another", "h_1 /s 1 /d", "x /t 2 /d", "add h_1"},
      {"empty_texts_are_not_the_same", "h_ - 1 -; h_1 /s - -", "x - 1 -; y - - -", "doubtful h_, add h_1"},
      {"first_free_number", "h_1 /s 1 /d", "h_1 /a - -; h_1_1 /b - -; h_1_3 /c - -", "add h_1_2"},
      {"two_of_one_name_in_one_pass", "h_3306 /a 3306 -; h_3306 /b 3306 -", "", "add h_3306, add h_3306_1"},
      {"script_and_its_server_are_one", "h_1 /s 1 /d; h_1 /s 1 /d", "", "add h_1, known h_1"},
      {"same_socket_but_all_else_another", "h_1 /s 1 /d", "x /s 2 /e", "doubtful h_1"},
      {"same_socket_and_one_of_the_others", "h_1 /s 1 /d", "x /s 2 /d", "known x"},
      {"known_by_what_was_set_right_by_hand", "h_1 /s 1 /logs/ 3 /d", "x 10.0.0.1:3 3 /d", "known x"},
      {"claims_are_not_added_and_hide_nobody", "h_1 /s 1 /d - - claim; h_1 /s 1 /d", "", "doubtful h_1, add h_1"},
      {"without_a_socket", "h_1 - 1 /d", "", "add h_1"},
      {"without_a_data_directory", "h_1 /s 1 -", "", "add h_1"},
      {"slashes_are_a_data_directory", "h_1 - 1 //", "x - 1 /", "known x"},
  };
  for (const auto& row : table) EXPECT_EQ(decisions(row.seen, row.known), row.decisions) << row.name;
}

}  // namespace
}  // namespace orrery::mysql
