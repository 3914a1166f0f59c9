#pragma once

/// The agent's entities: application, instance, connection record. Thin fronts over the inventory.
///
/// Getters return 0 and fill their output, or a code other than 0 (a StatusCode of services.h) and leave it alone.
/// A property that the instance does not have reads as empty or 0; only `getMySqlArchiveLogIndexFile` reports its
/// absence. Each getter asks the inventory anew. One object is used by one thread at a time.

#include <memory>
#include <string>
#include <utility>

#include "orrery/platform/MySqlSubclient.h"
#include "orrery/platform/export.h"

class ORRERY_PLATFORM_EXPORT Instance {
 public:
  explicit Instance(unsigned long id) noexcept : id_(id) {}
  Instance(const Instance&) = default;
  Instance& operator=(const Instance&) = default;
  virtual ~Instance();

  /// 0 when the entity stands for no instance.
  unsigned long getInstanceId() const noexcept { return id_; }
  int getInstanceName(std::string& name) const;

 private:
  unsigned long id_;
};

class ORRERY_PLATFORM_EXPORT InstanceByName {
 public:
  /// The instance of a client with this application type and name. 1 when there is one; otherwise 0, or the code of
  /// services.h with a minus, and `instanceId` is left alone.
  static int getInstanceId(unsigned long clientId, int applicationType, const std::string& name,
                           unsigned long& instanceId);
};

class ORRERY_PLATFORM_EXPORT MySqlInstance : public Instance {
 public:
  explicit MySqlInstance(unsigned long id) noexcept : Instance(id) {}
  MySqlInstance(const MySqlInstance&) = default;
  MySqlInstance& operator=(const MySqlInstance&) = default;
  ~MySqlInstance() override;

  /// The entity of an instance that the inventory holds. Null when it holds none of that id, cannot be reached, or
  /// memory is short; the log says which.
  static std::unique_ptr<MySqlInstance> create(long id) noexcept;

  int getMySqlUnixUser(std::string& value) const;
  int getSaUser(std::string& value) const;
  int getMySqlVersion(std::string& value) const;
  /// Sealed; DZPassword::decrypt opens it.
  int getSaPassword(std::string& value) const;
  int getMySqlNTUser(std::string& value) const;
  int getMySqlNTPassword(std::string& value) const;
  /// A socket's path, or "host:port".
  int getMySqlSocketFile(std::string& value) const;
  int getMySqlBinaryFilePath(std::string& value) const;
  int getMySqlDataFilePath(std::string& value) const;
  int getMySqlConfigFile(std::string& value) const;
  int getMySqlArchiveLogIndexFile(std::string& value) const;
  int getDbAutoDiscovery(int& value) const;
  int getMySqlSslCaPath(std::string& value) const;
  int getMySqlSslKey(std::string& value) const;
  int getMySqlSslCert(std::string& value) const;
  int getIsMariaDB(bool& value) const;
  int setIsMariaDB(bool value);
  /// Where the server keeps its data and whose they are: "datadir:PATH;usergroup:USER#GROUP;", empty before a backup
  /// looked.
  int getMySqlDataDir(std::string& value) const;
  int setMySqlDataDir(const std::string& value);
  /// Whether images are made of this instance with the server's enterprise backup program.
  int getMySqlMEBEnabled(bool& value) const;
  /// Directory of the program.
  int getMySqlMEBBinPath(std::string& value) const;
  /// Whether such a backup is to take no locks.
  int getMySqlNoLockingEnabled(bool& value) const;

 private:
  ORRERY_PLATFORM_HIDDEN int text(const char* key, std::string& value) const;
  ORRERY_PLATFORM_HIDDEN int flag(const char* key, bool& value) const;
};

/// The ids behind an application. A plain record.
struct AppIdInfo {
  unsigned long subclientId = 0;
  unsigned long clientId = 0;
  int applicationType = 0;
  unsigned long instanceId = 0;
  unsigned long backupSetId = 0;
};

/// What an agent program works on: a subclient of an instance. Copyable.
class ORRERY_PLATFORM_EXPORT ApplicationId {
 public:
  ApplicationId() = default;
  ApplicationId(unsigned long instanceId, unsigned long subclientId) noexcept
      : instanceId_(instanceId), subclientId_(subclientId) {}
  /// An application by the names of its backup set and its subclient, for callers that have no subclient's id.
  /// `realmId` tells suites apart that have several; here there is one. The names are looked up by what asks for them.
  ApplicationId(long realmId, unsigned long clientId, int applicationType, unsigned long instanceId,
                std::string backupSetName, std::string subclientName);
  /// Name of the backup set that every instance has.
  static const char* defaultBackupSetName() noexcept;

  /// The instance of this application; null when it has none or the inventory does not know it.
  std::unique_ptr<Instance> getInstance() const;
  /// Its subclient, and the backup set that the subclient belongs to; null when the application has none or the
  /// inventory does not know it.
  std::unique_ptr<MySqlSubclient> getSubclient() const;
  std::unique_ptr<MySqlBackupSet> getBackupSet() const;
  /// Its backup set, of the subclient or by its name. 0, or a code.
  int getBackupSetId(unsigned long& backupSetId) const;
  /// What the inventory knows of it; a subclient that is not known stays 0, and so does its backup set. 0, or a code.
  int getAppIdInfo(AppIdInfo& info) const;
  /// Name of the client that owns the instance. 0, or a code.
  int getClientName(std::string& name) const;
  unsigned long getInstanceId() const noexcept { return instanceId_; }
  unsigned long getSubclientId() const noexcept { return subclientId_; }

 private:
  unsigned long instanceId_ = 0;
  unsigned long subclientId_ = 0;
  std::string backupSetName_;
};

/// Explicit parameters of a connection, for callers that have no instance in the inventory. A plain record.
class MySqlServer {
 public:
  const std::string& GetSaUser() const noexcept { return saUser_; }
  /// Plain, as the caller set it.
  const std::string& GetPasswd() const noexcept { return password_; }
  const std::string& GetSocketFile() const noexcept { return socketFile_; }
  const std::string& GetBinaryPath() const noexcept { return binaryPath_; }
  const std::string& GetSslCa() const noexcept { return sslCa_; }
  const std::string& GetSslKey() const noexcept { return sslKey_; }
  const std::string& GetSslCert() const noexcept { return sslCert_; }
  const std::string& GetUnixUser() const noexcept { return unixUser_; }

  void SetSaUser(std::string value) { saUser_ = std::move(value); }
  void SetPasswd(std::string value) { password_ = std::move(value); }
  void SetSocketFile(std::string value) { socketFile_ = std::move(value); }
  void SetBinaryPath(std::string value) { binaryPath_ = std::move(value); }
  void SetSslCa(std::string value) { sslCa_ = std::move(value); }
  void SetSslKey(std::string value) { sslKey_ = std::move(value); }
  void SetSslCert(std::string value) { sslCert_ = std::move(value); }
  void SetUnixUser(std::string value) { unixUser_ = std::move(value); }

 private:
  std::string saUser_, password_, socketFile_, binaryPath_, sslCa_, sslKey_, sslCert_, unixUser_;
};
