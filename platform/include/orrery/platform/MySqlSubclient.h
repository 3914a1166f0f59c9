#pragma once

/// Subclients and their content: what of an instance a backup protects. Thin fronts over the inventory.
///
/// Operations return 0, or a code other than 0 (a StatusCode of services.h) and leave their outputs alone; the code's
/// text is `getErrorString()`'s. Each asks the inventory anew. One object is used by one thread at a time.

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include "orrery/platform/export.h"

/// One entry of a subclient's content. A plain record.
class ApplProperty {
 public:
  /// A database of MySQL or MariaDB among the types of content.
  static constexpr int typeDatabase = 120;

  ApplProperty(int type, std::string name) : type_(type), name_(std::move(name)) {}
  int getType() const noexcept { return type_; }
  const std::string& getName() const noexcept { return name_; }

 private:
  int type_;
  std::string name_;
};

/// A database in a subclient's content, by its name with a "/" before it.
class MySqlProperty : public ApplProperty {
 public:
  /// `size` in bytes; `created` as the agent was told, leading digits of the server's text; `type` 0 means a database.
  MySqlProperty(std::string name, std::int64_t size, long created, int type)
      : ApplProperty(type == 0 ? typeDatabase : type, std::move(name)), size_(size), created_(created) {}
  std::int64_t getSize() const noexcept { return size_; }
  long getCreated() const noexcept { return created_; }
  /// Whether the agent added the database by itself, and may remove it when it is gone.
  bool isContentAutoDiscovered() const noexcept { return isAutoDiscovered_; }
  void setContentAutoDiscovered(bool value = true) noexcept { isAutoDiscovered_ = value; }

 private:
  std::int64_t size_;
  long created_;
  bool isAutoDiscovered_ = false;
};

/// What the inventory keeps as content of one subclient.
class ORRERY_PLATFORM_EXPORT ApplProperties {
 public:
  explicit ApplProperties(unsigned long subclientId) noexcept : subclientId_(subclientId) {}
  ApplProperties(const ApplProperties&) = default;
  ApplProperties& operator=(const ApplProperties&) = default;
  virtual ~ApplProperties();

  /// Appends the content in the order of types and names.
  int getProperties(std::list<MySqlProperty>& properties) const;
  /// Adds entries or replaces those of the same type and name, all or nothing; others stay.
  int setProperties(const std::list<MySqlProperty>& properties);
  /// Removes databases by their names, all or nothing. Names that are not in the content are no failure.
  int removeProperties(const std::list<std::string>& names);
  /// What the last failure of this object was. `code` is the result it gave.
  std::string getErrorString(int code) const;

 protected:
  unsigned long subclientId() const noexcept { return subclientId_; }
  ORRERY_PLATFORM_HIDDEN int keep(int code, std::string text) const;

 private:
  unsigned long subclientId_;
  mutable int lastCode_ = 0;
  mutable std::string lastText_;
};

class ORRERY_PLATFORM_EXPORT MySqlSubclient : public ApplProperties {
 public:
  explicit MySqlSubclient(unsigned long id) noexcept : ApplProperties(id) {}
  MySqlSubclient(const MySqlSubclient&) = default;
  MySqlSubclient& operator=(const MySqlSubclient&) = default;
  ~MySqlSubclient() override;

  unsigned long getSubclientId() const noexcept { return subclientId(); }
  int getSubclientName(std::string& name) const;
  /// Whether this is the subclient that takes what no other has. False also when the inventory cannot tell, which is
  /// logged: nothing is then added to it by itself.
  bool isDefaultSubclient() const;
  /// Whether the next backup has to be a full one, because what the earlier ones stand on is gone.
  int getForceFull(bool& forceFull) const;
  int SetForceFull(bool forceFull);
};

/// A backup set: the subclients that are backed up as one.
class ORRERY_PLATFORM_EXPORT MySqlBackupSet {
 public:
  explicit MySqlBackupSet(unsigned long id) noexcept : id_(id) {}
  unsigned long getBackupSetId() const noexcept { return id_; }

 private:
  unsigned long id_;
};

class ORRERY_PLATFORM_EXPORT ClientApplicationList {
 public:
  /// What `getSubclientList` lists: all subclients of a backup set.
  static constexpr int subclientsOfBackupSet = 5;

  /// Appends ids and names of the subclients of a backup set, in the same order. `clientId` 0 and `filter` null: no
  /// further choice; this backend knows no other, nor another `kind`.
  static int getSubclientList(std::list<unsigned long>& ids, std::list<std::string>& names, unsigned long clientId,
                              unsigned long backupSetId, const char* filter, int kind);
};
