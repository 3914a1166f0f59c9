// Library mode: the TLS files of a connection.

#include <unistd.h>

#include <memory>
#include <new>
#include <optional>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/DZFile.h"
#include "orrery/platform/services.h"

#include "session/guarded.h"
#include "session/option_file.h"

namespace {

// What callers are told of a missing file; the message catalogue has a sentence for each.
constexpr int caMissing = 0x57000066;
constexpr int certMissing = 0x57000067;
constexpr int keyMissing = 0x57000068;

}  // namespace

bool GetMySqlInfoExt::sslConnect() {
  constexpr const char* tag = "GetMySqlInfoExt::sslConnect";
  return orrery::mysql::guarded(evEvent, tag, [&] {
           if (!takeTlsFilesFromSettings(tag)) return -1;
           updateUseSsl();
           if (!bUseSsl) {
             evEvent.Debug(tag, "SSL not configured for the server.");
             return 0;
           }
           if (!haveTlsFiles(tag)) return -1;
           m_Conn->setSslParameters(strSslKey, strSslCert, strSslCa, "", "");
           appendToDefaultsFile(tag);
           return 0;
         }) == 0;
}

/// False when the settings cannot be read: an instance whose TLS files stand there would be spoken to in plain text.
bool GetMySqlInfoExt::takeTlsFilesFromSettings(const char* tag) {
  std::optional<std::string> stored;
  const auto status = orrery::platform::services().settings->read("MySQL", "bSSLEnabled", stored);
  if (!status.ok()) return refuseUnreadableSettings(tag, status.text);
  long enabled = 0;
  if (!m_platformInfo.getNumber("MySQL", "bSSLEnabled", enabled) || enabled == 0) return true;
  evEvent.Debug(tag, " SSL regkey Enabled, looking for ssl params.");
  const struct {
    const char* key;
    std::string& path;
  } files[] = {{"sSslCa", strSslCa}, {"sSslKey", strSslKey}, {"sSslCert", strSslCert}};
  for (const auto& file : files) {
    const auto fileStatus = orrery::platform::services().settings->read("MySQL", file.key, stored);
    if (!fileStatus.ok()) return refuseUnreadableSettings(tag, fileStatus.text);
    file.path = stored.value_or("");
  }
  return true;
}

bool GetMySqlInfoExt::refuseUnreadableSettings(const char* tag, const std::string& reason) {
  SetErrorStatus(-1, "the settings for TLS cannot be read: " + reason);
  evEvent.Error(tag, "%s", strErrorString.c_str());
  return false;
}

bool GetMySqlInfoExt::haveTlsFiles(const char* tag) {
  const auto isMissing = [](const std::string& path) { return !path.empty() && access(path.c_str(), F_OK) != 0; };
  if (isMissing(strSslCa)) {
    SetErrorStatus(caMissing, "");
    evEvent.Debug(tag, "SSL-CA [%s] not found on [%s].", strSslCa.c_str(), EvDebug::getClientName().c_str());
    return false;
  }
  if (isMissing(strSslKey)) {
    SetErrorStatus(keyMissing, "");
    evEvent.Debug(tag, "SSL-Key [%s] not found on [%s].", strSslKey.c_str(), EvDebug::getClientName().c_str());
    return false;
  }
  if (isMissing(strSslCert)) {
    SetErrorStatus(certMissing, "");
    evEvent.Debug(tag, "SSL-Cert [%s] not found on [%s].", strSslCert.c_str(), EvDebug::getClientName().c_str());
    return false;
  }
  return true;
}

void GetMySqlInfoExt::appendToDefaultsFile(const char* tag) {
  evEvent.Debug(tag, " Config password file [%s] ", strConfigPwdFile.c_str());
  const std::unique_ptr<DZFile> file(new (std::nothrow) DZFile);
  if (file == nullptr) {
    evEvent.Debug(tag, "  Failed to open the flle [%s] ", strConfigPwdFile.c_str());
    return;
  }
  // Kept: neither the opening nor the writing is tested. The connection does not need the file; a session from a
  // connection record has none, and its connection must not fail for that.
  file->open(strConfigPwdFile, DZFile::modeWrite);
  file->seekToEnd();
  const auto append = [&](const char* option, const std::string& path) {
    std::string line = option + ("\"" + path + "\"");
    file->write((line + "\n").data(), line.size() + 1);
    if (orrery::mysql::readOptionLine(line) != path) {
      evEvent.Error(tag,
                    "the path [%s] holds characters that an option file does not give back as they are: clients that "
                    "are started with the file will look for another one",
                    path.c_str());
    }
    return line;
  };
  if (!strSslCa.empty()) {
    evEvent.Debug(tag, " SSL CA [%s] [%s]", strSslCa.c_str(), append("ssl-ca=", strSslCa).c_str());
  }
  if (!strSslKey.empty()) {
    evEvent.Debug(tag, " SSL Key [%s] [%s]", strSslKey.c_str(), append("ssl-key=", strSslKey).c_str());
  }
  if (!strSslCert.empty()) {
    evEvent.Debug(tag, " SSL Cert [%s] [%s]", strSslCert.c_str(), append("ssl-cert=", strSslCert).c_str());
  }
  file->close();
}
