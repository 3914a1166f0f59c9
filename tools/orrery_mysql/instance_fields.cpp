#include "instance_fields.h"

#include <array>

#include "orrery/platform/instance_properties.h"

namespace orrery::tool {
namespace {

namespace property = platform::property;

constexpr std::array kFields{
    InstanceField{"--socket", "PATH|HOST:PORT", property::socketFile, "socket", "socket", FieldKind::socket,
                  "Socket of the server, or its address"},
    InstanceField{"--user", "ACCOUNT", property::saUser, "user", "account", FieldKind::account,
                  "MySQL account of all statements"},
    InstanceField{"--unix-user", "USER", property::unixUser, "unix_user", "Unix account", FieldKind::unixUser,
                  "Account of this machine that owns the server; clients run as it"},
    InstanceField{"--bin", "DIR", property::binaryPath, "binary_path", "client programs", FieldKind::clients,
                  "Folder of mysql and mysqladmin, or of mariadb and mariadb-admin"},
    InstanceField{"--data", "DIR", property::dataPath, "data_path", "data folder", FieldKind::path,
                  "The server's data folder"},
    InstanceField{"--config", "FILE", property::configFile, "config_file", "option file", FieldKind::path,
                  "The server's option file"},
    InstanceField{"--port", "PORT", property::port, "port", "port", FieldKind::port,
                  "Port by which discovery knows the server again; sessions go by --socket"},
    InstanceField{"--binlog-index", "FILE", property::archiveLogIndex, "binlog_index", "binary-log index",
                  FieldKind::path, "Index file of the binary logs"},
    InstanceField{"--ssl-ca", "FILE", property::sslCa, "ssl_ca", "TLS authority", FieldKind::tlsFile,
                  "Certificate of the authority that signed the server's; switches TLS on"},
    InstanceField{"--ssl-key", "FILE", property::sslKey, "ssl_key", "TLS key", FieldKind::tlsFile,
                  "Key of the client's certificate"},
    InstanceField{"--ssl-cert", "FILE", property::sslCert, "ssl_cert", "TLS certificate", FieldKind::tlsFile,
                  "The client's certificate"},
    InstanceField{"--auto-discovery", "on|off", property::autoDiscovery, "auto_discovery", "database discovery",
                  FieldKind::onOff, "Whether the agent adds new databases by itself"},
    InstanceField{"--meb", "on|off", property::mebEnabled, "meb", "enterprise backup", FieldKind::onOff,
                  "Whether backups are taken with mysqlbackup"},
    InstanceField{"--meb-bin", "DIR", property::mebBinPath, "meb_binary_path", "mysqlbackup folder", FieldKind::path,
                  "Folder of mysqlbackup"},
    InstanceField{"--meb-no-locking", "on|off", property::mebNoLocking, "meb_no_locking", "backup without locks",
                  FieldKind::onOff, "Whether mysqlbackup takes no locks"},
    InstanceField{"--version-hint", "VERSION", property::version, "version", "version", FieldKind::text,
                  "Version of the server as far as it is known without asking it"},
};

std::string valueOf(const platform::InstanceRecord& record, const char* key) {
  const auto found = record.properties.find(key);
  return found == record.properties.end() ? std::string() : found->second;
}

bool hasPassword(const platform::InstanceRecord& record) {
  return !valueOf(record, property::saPassword).empty();
}

}  // namespace

std::span<const InstanceField> instanceFields() {
  return kFields;
}

Json toJson(const platform::InstanceRecord& record, const std::string& client) {
  Json document;
  document["id"] = record.id;
  document["name"] = record.name;
  document["client"] = client;
  for (const InstanceField& field : kFields) {
    const std::string value = valueOf(record, field.property);
    if (field.kind == FieldKind::onOff) {
      document[field.name] = value == "1";
    } else {
      document[field.name] = value.empty() ? Json(nullptr) : Json(value);
    }
  }
  document["password_stored"] = hasPassword(record);
  return document;
}

Table toTable(const platform::InstanceRecord& record, const std::string& client) {
  Table table;
  table.add({"id", std::to_string(record.id)});
  table.add({"name", record.name});
  table.add({"client", client});
  for (const InstanceField& field : kFields) {
    const std::string value = valueOf(record, field.property);
    const std::string shown = value.empty() ? "-" : value;
    table.add({field.label, field.kind == FieldKind::onOff ? (value == "1" ? "on" : "off") : shown});
  }
  table.add({"password", hasPassword(record) ? "stored" : "none"});
  return table;
}

}  // namespace orrery::tool
