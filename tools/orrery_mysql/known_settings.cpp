#include "known_settings.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <vector>

namespace orrery::tool {
namespace {

constexpr long kAnyNumber = 2147483647;

constexpr std::array kSettings{
    KnownSetting{"MySQL", "sCommandMode", true, "0", kAnyNumber,
                 "other than 0: servers are reached with their own clients"},
    KnownSetting{"MySQL", "sLibPath", false, "", 0, "client library to load; names the library mode"},
    KnownSetting{"MySQL", "bSSLEnabled", true, "0", kAnyNumber,
                 "other than 0: the three TLS files below count instead of the instance's"},
    KnownSetting{"MySQL", "sSslCa", false, "", 0, "TLS authority, with bSSLEnabled"},
    KnownSetting{"MySQL", "sSslKey", false, "", 0, "TLS key, with bSSLEnabled"},
    KnownSetting{"MySQL", "sSslCert", false, "", 0, "TLS certificate, with bSSLEnabled"},
    KnownSetting{"MySQL", "nRetryDropDB", true, "1", kAnyNumber, "attempts to drop a database, 5 seconds apart"},
    KnownSetting{"MySQL", "bManualServerStart", true, "0", kAnyNumber,
                 "other than 0: the server is not started after an enterprise restore"},
    KnownSetting{"MySQL", "sServerStartCmd", false, "", 0,
                 "command that starts a server; without it: service mysqld start"},
    KnownSetting{"MySQL", "nStartServerWaitTime", true, "180", kAnyNumber,
                 "seconds to wait for a server that was started"},
    KnownSetting{"Session", "nIdleSeconds", true, "120", 86400,
                 "seconds of silence of a media library that count as one idle interval; after five its run fails"},
    KnownSetting{"Log", "nLevel", true, "0", 10, "highest level of debug lines that the log takes, 0 to 10"},
};

std::string lowerCase(std::string_view text) {
  std::string result(text);
  for (char& character : result) character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  return result;
}

/// Changes of one character that make one text of the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (from[i - 1] == to[j - 1] ? 0U : 1U)});
      diagonal = above;
    }
  }
  return row[to.size()];
}

}  // namespace

std::span<const KnownSetting> knownSettings() {
  return kSettings;
}

const KnownSetting* findSetting(std::string_view key) {
  for (const KnownSetting& setting : kSettings) {
    if (key == setting.key || key == std::string(setting.section) + "." + setting.key) return &setting;
  }
  return nullptr;
}

std::string nearestSetting(std::string_view key) {
  const std::string wanted = lowerCase(key.substr(key.find('.') == std::string_view::npos ? 0 : key.find('.') + 1));
  const auto nearest = std::min_element(kSettings.begin(), kSettings.end(), [&](const auto& one, const auto& other) {
    return distance(wanted, lowerCase(one.key)) < distance(wanted, lowerCase(other.key));
  });
  return nearest->key;
}

std::optional<std::string> refuseValue(const KnownSetting& setting, std::string_view value) {
  if (!setting.isNumber) return std::nullopt;
  long number = -1;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error == std::errc() && end == value.data() + value.size() && number >= 0 && number <= setting.highest) {
    return std::nullopt;
  }
  return "it wants a number from 0 to " + std::to_string(setting.highest);
}

}  // namespace orrery::tool
