#include <new>
#include <vector>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/error.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

// Room for as many addresses as there are; nothing when their number or the memory cannot be had.
std::vector<Ipv4Address> RoomForAddresses() try {
  std::size_t count = 0;
  if (CurrentMachine().Ipv4Addresses(nullptr, count) != kErrorInsufficientBuffer) return {};
  return std::vector<Ipv4Address>(std::max<std::size_t>(count, 1));
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace

int CUtil::GetIPList(CStringArray& addresses) {
  std::vector<Ipv4Address> table = RoomForAddresses();
  if (table.empty()) {
    Log4cxxMgr::LogOutDetail(2, 101413, L"CUtil::GetIPList", __LINE__,
                             L"IPアドレステーブルのメモリ獲得に失敗しました。");
    return 0;
  }
  std::size_t count = table.size();
  if (CurrentMachine().Ipv4Addresses(table.data(), count) != kErrorSuccess) {
    Log4cxxMgr::LogOutDetail(2, 101412, L"CUtil::GetIPList", __LINE__,
                             L"IPアドレステーブルの取得に失敗しました。");
    return 0;
  }
  table.resize(count);
  for (const Ipv4Address& address : table) addresses.Add(FormatIpv4Address(address));
  return 1;
}

int CUtil::IsWin8orLater(int* not_workstation) {
  constexpr std::uint32_t kWorkstation = 1;
  SystemVersion version;
  if (!CurrentMachine().Version(version)) {
    Log4cxxMgr::LogOutDetail(5, 0, L"CUtil::IsWin8orLater", __LINE__,
                             Format(L"バージョン情報の取得エラー[%d]", GetLastError()));
    return 0;
  }
  const int is_recent = version.major >= 7 || (version.major == 6 && version.minor >= 2);
  const int is_server = version.product_type != kWorkstation;
  if (not_workstation != nullptr) *not_workstation = is_server;
  Log4cxxMgr::LogOutDetail(
      3, 0, L"CUtil::IsWin8orLater", __LINE__,
      Format(L"バージョン情報(Major[%d], Minor[%d], Product[%d])→判定結果[%d][%d]", version.major,
             version.minor, version.product_type, is_recent, is_server));
  return is_recent;
}

}  // namespace vk::tq
