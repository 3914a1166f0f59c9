// Agents are built against the table of operations: a slot that moved would call another operation. With this
// platform's C++ ABI a pointer to a virtual member holds 1 plus the offset of its slot in the table.

#include <array>
#include <cstdint>
#include <cstring>
#include <set>

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

using Text = std::string;
using Texts = std::list<std::string>;

TEST(Slots, HoldEveryOperationInOrder) {
  int next = 3;  // 1 and 2 are the destructor's
  EXPECT_EQ(slotOf(&GetMySqlInfo::FindAllDatabasePaths), next++);
  EXPECT_EQ(slotOf(static_cast<int (GetMySqlInfo::*)(ApplicationId)>(&GetMySqlInfo::Init)), next++);
  EXPECT_EQ(slotOf(static_cast<int (GetMySqlInfo::*)(long)>(&GetMySqlInfo::Init)), next++);
  EXPECT_EQ(slotOf(static_cast<int (GetMySqlInfo::*)(MySqlInstance*)>(&GetMySqlInfo::Init)), next++);
  EXPECT_EQ(slotOf(static_cast<int (GetMySqlInfo::*)(MySqlServer)>(&GetMySqlInfo::Init)), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::PingServer), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::QueryVariable), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::FindBinLogStatus), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::GetLogBinPath), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::GetMaxAllowedPacket), next++);
  EXPECT_EQ(slotOf(static_cast<int (GetMySqlInfo::*)(Texts&, long*, long*)>(&GetMySqlInfo::FindMasterLogs)), next++);
  EXPECT_EQ(slotOf(static_cast<int (GetMySqlInfo::*)(Texts&, bool)>(&GetMySqlInfo::FindMasterLogs)), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::CheckDBPresence), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::FlushLogs), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::CreateDB), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::DropDB), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::PurgeLogsTo), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::getVersionFromServer), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::LastLogName), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::FetchDBList), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::StartSlave), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::StopSlave), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::StartServer), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::StopServer), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::getReplicationStatus), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::getDBProps), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::isUsesInnoDBEngine), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::checkInnoDbFilePerTable), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::createDatabaseUsingSchema), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::createTableUsingSchema), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::discardTableSpace), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::importTableSpace), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::setForeignKeyConstraint), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::setIdentifiedWithAsHex), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::ResetMaster), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::getUsers), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::getCreateUserQuery), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::getGrantQueries), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::fillDatabaseInfo), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::fillTableInfoForDataBase), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::isXtrabackupPossible), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::isPartitionedTable), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::recoverTable), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::isMySQL8orMore), next++);
  EXPECT_EQ(slotOf(&GetMySqlInfo::isVersionGreaterThan), next++);
  EXPECT_EQ(next, 48) << "47 slots, the destructor's two included";
}

constexpr std::size_t slots = 47;

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
