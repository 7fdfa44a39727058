#include <algorithm>

#include "foundation/util.h"
#include "platform/error.h"
#include "platform/system_info.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class UtilMachineTest : public ProductTest {};

class OtherMachine : public Machine {
 public:
  ErrorCode Ipv4Addresses(Ipv4Address* to, std::size_t& count) override {
    count = addresses.size();
    if (to == nullptr) return size_status;
    std::ranges::copy(addresses, to);
    return table_status;
  }
  bool Version(SystemVersion& to) override {
    if (!has_version) SetLastError(kErrorNotSupported);
    if (has_version) to = version;
    return has_version;
  }

  std::vector<Ipv4Address> addresses;
  ErrorCode size_status = kErrorInsufficientBuffer;
  ErrorCode table_status = kErrorSuccess;
  SystemVersion version;
  bool has_version = true;
};

TEST_F(UtilMachineTest, TheAddressesOfTheMachineAreAppended) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  CStringArray addresses = {L"first"};
  EXPECT_EQ(1, CUtil::GetIPList(addresses));
  EXPECT_THAT(addresses, ElementsAre(L"first"));
  machine.addresses = {{{255, 255, 255, 255}}, {{0, 0, 0, 0}}, {{10, 2, 30, 4}}};
  EXPECT_EQ(1, CUtil::GetIPList(addresses));
  EXPECT_THAT(addresses, ElementsAre(L"first", L"255.255.255.255", L"0.0.0.0", L"10.2.30.4"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(UtilMachineTest, ATableThatCannotBeHadIsLogged) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  CStringArray addresses;
  machine.table_status = kErrorInsufficientBuffer;  // the table has grown meanwhile
  EXPECT_EQ(0, CUtil::GetIPList(addresses));
  for (const ErrorCode status : {kErrorSuccess, kErrorNotSupported}) {
    machine.size_status = status;
    EXPECT_EQ(0, CUtil::GetIPList(addresses));
  }
  const LogLine no_memory{2, 101413, L"CUtil::GetIPList",
                          L"IPアドレステーブルのメモリ獲得に失敗しました。"};
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, 101412, L"CUtil::GetIPList",
                                                L"IPアドレステーブルの取得に失敗しました。"},
                                        no_memory, no_memory));
  EXPECT_TRUE(addresses.IsEmpty());
}

TEST_F(UtilMachineTest, VersionsFrom62OnAreRecent) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  const std::tuple<SystemVersion, int, int> cases[] = {{{2, 5, 9, 1}, 0, 0},  {{2, 6, 1, 1}, 0, 0},
                                                       {{2, 6, 2, 1}, 1, 0},  {{2, 6, 3, 3}, 1, 1},
                                                       {{2, 10, 0, 2}, 1, 1}, {{2, 7, 0, 1}, 1, 0}};
  for (const auto& [version, is_recent, is_server] : cases) {
    log_.Clear();
    machine.version = version;
    int found = 77;
    EXPECT_EQ(is_recent, CUtil::IsWin8orLater(&found));
    EXPECT_EQ(is_server, found);
    EXPECT_EQ(is_recent, CUtil::IsWin8orLater(nullptr));
  }
  const LogLine line{3, 0, L"CUtil::IsWin8orLater",
                     L"バージョン情報(Major[7], Minor[0], Product[1])→判定結果[1][0]"};
  EXPECT_THAT(log_.lines(), ElementsAre(line, line));

  log_.Clear();
  machine.has_version = false;
  int is_server = 77;
  EXPECT_EQ(0, CUtil::IsWin8orLater(&is_server));
  EXPECT_EQ(77, is_server);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5, 0, L"CUtil::IsWin8orLater",
                                                L"バージョン情報の取得エラー[50]"}));
}

}  // namespace
}  // namespace vk::tq::testing
