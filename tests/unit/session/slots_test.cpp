// Agents are built against the table of operations: a slot that moved would call another operation. With this
// platform's C++ ABI a pointer to a virtual member holds 1 plus the offset of its slot in the table.

#include <array>
#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlHelperClassesExt.h"

namespace {

template <class Member>
int slotOf(Member member) {
  std::uintptr_t words[2];
  static_assert(sizeof(member) == sizeof(words));
  std::memcpy(words, &member, sizeof(words));
  EXPECT_EQ(words[0] % 2, 1U) << "not virtual";
  return static_cast<int>((words[0] - 1) / sizeof(void*)) + 1;
}

constexpr std::size_t slots = 47;
using Base = GetMySqlInfo;
using Texts = std::list<std::string>;

template <class... Members>
std::vector<int> slotsOf(Members... members) {
  return {slotOf(members)...};
}

TEST(Slots, HoldEveryOperationInOrder) {
  const std::vector<int> found =
      slotsOf(&Base::FindAllDatabasePaths, static_cast<int (Base::*)(ApplicationId)>(&Base::Init),
              static_cast<int (Base::*)(long)>(&Base::Init), static_cast<int (Base::*)(MySqlInstance*)>(&Base::Init),
              static_cast<int (Base::*)(MySqlServer)>(&Base::Init), &Base::PingServer, &Base::QueryVariable,
              &Base::FindBinLogStatus, &Base::GetLogBinPath, &Base::GetMaxAllowedPacket,
              static_cast<int (Base::*)(Texts&, long*, long*)>(&Base::FindMasterLogs),
              static_cast<int (Base::*)(Texts&, bool)>(&Base::FindMasterLogs), &Base::CheckDBPresence, &Base::FlushLogs,
              &Base::CreateDB, &Base::DropDB, &Base::PurgeLogsTo, &Base::getVersionFromServer, &Base::LastLogName,
              &Base::FetchDBList, &Base::StartSlave, &Base::StopSlave, &Base::StartServer, &Base::StopServer,
              &Base::getReplicationStatus, &Base::getDBProps, &Base::isUsesInnoDBEngine, &Base::checkInnoDbFilePerTable,
              &Base::createDatabaseUsingSchema, &Base::createTableUsingSchema, &Base::discardTableSpace,
              &Base::importTableSpace, &Base::setForeignKeyConstraint, &Base::setIdentifiedWithAsHex,
              &Base::ResetMaster, &Base::getUsers, &Base::getCreateUserQuery, &Base::getGrantQueries,
              &Base::fillDatabaseInfo, &Base::fillTableInfoForDataBase, &Base::isXtrabackupPossible,
              &Base::isPartitionedTable, &Base::recoverTable, &Base::isMySQL8orMore, &Base::isVersionGreaterThan);
  ASSERT_EQ(found.size(), slots - 2) << "the first two are the destructor's";
  for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], static_cast<int>(i) + 3);
}

std::array<void*, slots> tableOf(const GetMySqlInfo& object) {
  void** table = nullptr;
  std::memcpy(&table, static_cast<const void*>(&object), sizeof(table));
  std::array<void*, slots> entries{};
  std::memcpy(entries.data(), table, sizeof(entries));
  return entries;
}

// A request that library mode forgot to override would run a client beside the connection.
TEST(Slots, OfLibraryModeAreItsOwnButForSix) {
  const std::set<int> kept = {slotOf(&GetMySqlInfo::FindAllDatabasePaths),
                              slotOf(static_cast<int (GetMySqlInfo::*)(MySqlInstance*)>(&GetMySqlInfo::Init)),
                              slotOf(&GetMySqlInfo::CheckDBPresence),
                              slotOf(&GetMySqlInfo::StartServer),
                              slotOf(&GetMySqlInfo::StopServer),
                              slotOf(&GetMySqlInfo::recoverTable)};
  const GetMySqlInfo base;
  const GetMySqlInfoExt derived;
  const auto ofBase = tableOf(base);
  const auto ofDerived = tableOf(derived);
  for (std::size_t i = 0; i < slots; ++i) {
    const int slot = static_cast<int>(i) + 1;
    EXPECT_EQ(ofBase[i] == ofDerived[i], kept.count(slot) == 1) << "slot " << slot;
  }
}

}  // namespace
