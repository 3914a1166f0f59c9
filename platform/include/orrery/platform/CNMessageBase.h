#pragma once

/// Records of the index: messages whose fields are known by their numbers.
///
/// A record is written in the protocol-buffers wire format, its fields in ascending order, so any reader of that format
/// can take it apart; docs/index.proto names messages and fields. Copies are deep. Objects are used by one thread at a
/// time. Field numbers go from 1 to 536870911; a field holds either a text or a list, and setting one kind replaces the
/// other.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orrery/platform/export.h"

class ORRERY_PLATFORM_EXPORT CNMessageBase {
 public:
  CNMessageBase();
  CNMessageBase(const CNMessageBase&);
  CNMessageBase(CNMessageBase&&) noexcept;
  CNMessageBase& operator=(const CNMessageBase&);
  CNMessageBase& operator=(CNMessageBase&&) noexcept;
  ~CNMessageBase();

  /// Sets a text field; the bytes are kept as they are.
  void setstring(std::uint32_t field, std::string text);
  /// The text of a field; empty when it is not set, see `isset`. Lives until the record changes.
  const std::string& getstring(std::uint32_t field) const;
  bool isset(std::uint32_t field) const noexcept;

  /// Replaces `objects` by the messages of a list field; of none when it is not set.
  template <class Message>
  void getlistobject(std::uint32_t field, std::vector<Message>& objects) const {
    objects.clear();
    for (const CNMessageBase& kept : list(field)) static_cast<CNMessageBase&>(objects.emplace_back()) = kept;
  }
  template <class Message>
  void setlistobject(std::uint32_t field, std::vector<Message> objects) {
    std::vector<CNMessageBase>& kept = emptyList(field);
    for (Message& object : objects) kept.push_back(std::move(object));
  }
  /// Appends one message: what reading the list, appending and writing it back comes to, without copying the others.
  void addlistobject(std::uint32_t field, CNMessageBase object);
  /// The messages of a list field without copying them. Lives until the record changes.
  const std::vector<CNMessageBase>& list(std::uint32_t field) const;

  /// Appends the record's bytes to `bytes`.
  void serialize(std::string& bytes) const;

 private:
  struct Field;
  ORRERY_PLATFORM_HIDDEN Field* find(std::uint32_t number);
  ORRERY_PLATFORM_HIDDEN const Field* find(std::uint32_t number) const;
  ORRERY_PLATFORM_HIDDEN Field& make(std::uint32_t number);
  std::vector<CNMessageBase>& emptyList(std::uint32_t field);

  std::vector<Field> fields_;  // ascending by number
};

/// What the index records of a server's schemas.
namespace IdxMetadata {

/// One database. 1: its name; 2: its creation statement; 3: the server's default storage engine.
class MySqlDbInfo : public CNMessageBase {};
/// One table. 1: its creation statement in Ascii85, absent when that could not be made; 4: its name; 5: its engine.
class MySqlMetaData : public CNMessageBase {};
/// One table that references another. 1: its name; 2: its database's name.
class MySqlChildTable : public CNMessageBase {};
/// 1: list of MySqlChildTable.
class MySqlChildTableList : public CNMessageBase {};

}  // namespace IdxMetadata
