#include "transport/util_link.h"

#include <array>
#include <cwchar>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "platform/clock.h"
#include "platform/dns.h"
#include "platform/error.h"
#include "platform/ipv4_address.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

using Chain = std::unique_ptr<IP_ADDR_STRING, decltype(&CUtilLink::FreeDNSList)>;

bool IsDotted(const CString& address) {
  const auto ansi = EncodeText(kCodePageAnsi, address);
  return ansi && ParseIpv4Address(*ansi);
}

// What a cache string holds; what stands behind a second separator is ignored.
struct CacheEntry {
  explicit CacheEntry(const CString& cache) {
    const std::size_t separator = cache.find(L'@');
    address = cache.substr(0, separator);
    if (address.empty() || separator == CString::npos) return;
    name = cache.substr(separator + 1);
    name = name.substr(0, name.find(L'@'));
  }

  CString address;
  CString name;
};

CString CacheString(const CString& address, const CString& name) {
  return Format(L"%s@%s", address, name);
}

bool IsFresh(std::int64_t resolve_time, int valid_minutes) {
  if (valid_minutes == 0) return false;
  const double seconds =
      static_cast<double>(CurrentClock().Now()) - static_cast<double>(resolve_time);
  return seconds / 60.0 <= valid_minutes;
}

// The parameters of the network; nothing, and a line, when they cannot be had.
std::optional<NetworkParameters> ReadNetwork(const wchar_t* function) {
  // The record itself has room for one server.
  std::size_t room = 1;
  NetworkParameters parameters;
  if (CurrentMachine().Network(parameters, room) == kErrorBufferOverflow) {
    Log4cxxMgr::LogOutDetail(2, 0, function, __LINE__, L"アロケート不足の為、再アロケート");
  }
  const ErrorCode status = CurrentMachine().Network(parameters, room);
  if (status == kErrorSuccess) return parameters;
  Log4cxxMgr::LogOutDetail(5, 0, function, __LINE__,
                           Format(L"GetNetworkParams failed with error: %d", status));
  return std::nullopt;
}

IP_ADDR_STRING* NewNode(const std::string& address) {
  auto* node = new IP_ADDR_STRING{};
  address.copy(node->IpAddress.String, sizeof node->IpAddress.String - 1);
  return node;
}

CString Widen(std::string_view ansi) { return DecodeText(kCodePageAnsi, ansi).value_or(CString()); }

}  // namespace

int CUtilLink::ConformFQDN(const CString& address, CString& name, CString& cache, int tries,
                           int valid_minutes, std::int64_t& resolve_time) try {
  static constexpr wchar_t kFunction[] = L"CUtilLink::ConformFQDN";
  Log4cxxMgr::LogOutDetail(0, 0, kFunction, __LINE__, L"START");
  if (!IsDotted(address)) {
    CString new_cache = CacheString(address, address);
    name = address;
    cache = std::move(new_cache);
    Log4cxxMgr::LogOutDetail(
        3, 0, kFunction, __LINE__,
        Format(L"IPアドレス形式でないため、ホスト名をそのまま設定( ホスト名:%s )", address));
    return 1;
  }

  CacheEntry entry(cache);
  std::int64_t time = resolve_time;
  int result = 0;
  if (EqualsNoCase(address, entry.address) && IsFresh(resolve_time, valid_minutes)) {
    Log4cxxMgr::LogOutDetail(
        2, 0, kFunction, __LINE__,
        Format(L"FQDNをキャッシュから取得( IP:%s , FQDN:%s )", address, entry.name));
    result = 1;
  } else {
    Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__,
                             Format(L"FQDNの取得開始( IP:%s )", address));
    for (int attempt = 1; attempt <= tries && result == 0; ++attempt) {
      Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__,
                               Format(L"FQDNの取得 %d/%d回目", attempt, tries));
      const long status = GetFQDN(address, entry.name);
      if (status == 0) {
        Log4cxxMgr::LogOutDetail(
            3, 0, kFunction, __LINE__,
            Format(L"FQDNの取得に成功( IP:%s , FQDN:%s )", address, entry.name));
        result = 1;
        time = CurrentClock().Now();
      } else {
        Log4cxxMgr::LogOutDetail(4, 0, kFunction, __LINE__,
                                 Format(L"FQDNの取得に失敗( IP:%s ErrCode:%ld )", address, status));
      }
    }
  }
  // All three or none: with a new time, an old name would count as fresh.
  CString new_cache = CacheString(address, entry.name);
  name = std::move(entry.name);
  cache = std::move(new_cache);
  resolve_time = time;
  return result;
} catch (const std::exception&) {
  return 0;
}

long CUtilLink::GetFQDN(const CString& address, CString& name) try {
  static constexpr wchar_t kFunction[] = L"CUtilLink::GetFQDN";
  Log4cxxMgr::LogOutDetail(0, 0, kFunction, __LINE__, L"START");
  int count = 0;
  const Chain servers(AllocDNSList(count), FreeDNSList);
  auto status = static_cast<long>(kErrorInvalidData);
  if (count < 1) {
    status = GetFQDN(address, nullptr, name);
    Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__,
                             Format(L"(%s)をDNSサーバの指定なしで問い合わせ", address));
  }
  for (const IP_ADDR_STRING* node = servers.get(); node != nullptr && status != 0;
       node = node->Next) {
    const char* const server = node->IpAddress.String;
    Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__,
                             Format(L"(%s)をDNSサーバ（%s）へ問い合わせ ", address, Widen(server)));
    status = GetFQDN(address, server, name);
  }
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, Format(L"FQDN: %s", name));
  Log4cxxMgr::LogOutDetail(0, 0, kFunction, __LINE__, L"END");
  return status;
} catch (const std::exception&) {
  return static_cast<long>(kErrorNotEnoughMemory);
}

long CUtilLink::GetFQDN(const CString& address, const char* server, CString& name) try {
  static constexpr wchar_t kFunction[] = L"CUtilLink::GetFQDN";
  Log4cxxMgr::LogOutDetail(0, 0, kFunction, __LINE__, L"START");
  if (address.empty()) return static_cast<long>(kErrorInvalidData);
  // An address is shorter than the buffer; what does not fit is none, and its beginning is none.
  std::array<wchar_t, 260> buffer{};
  address.copy(buffer.data(), buffer.size() - 1);
  const CString reverse_name = ReverseIP(buffer.data());

  std::optional<Ipv4Address> server_address;
  ErrorCode status = kErrorSuccess;
  if (server != nullptr && *server != '\0') {
    server_address = ParseIpv4Address(server);
    if (!server_address) status = kErrorInvalidParameter;
  }
  std::vector<DnsRecord> records;
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, L"DNS Query Start");
  if (status == kErrorSuccess) status = QueryPtr(reverse_name, server_address, records);
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, L"DNS Query End");
  if (status == kErrorSuccess) {
    Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, L"DNS Query SUCCESS");
    name = records.front().host;
  } else {
    // A query that failed has no record to point to.
    Log4cxxMgr::LogOutDetail(
        1, 0, kFunction, __LINE__, static_cast<int>(status),
        Format(L"DNS Query FAIL : [pDnsRecord : 0x%08x] [ErrorCode : 0x%08x]", 0u, status));
    name = address;
  }
  return static_cast<long>(status);
} catch (const std::exception&) {
  return static_cast<long>(kErrorNotEnoughMemory);
}

CString CUtilLink::ReverseIP(wchar_t* address) try {
  Log4cxxMgr::LogOutDetail(0, 0, L"CUtilLink::ReverseIP", __LINE__, L"START");
  if (address == nullptr || !IsDotted(address)) return {};
  std::array<const wchar_t*, 4> pieces{};
  wchar_t* rest = nullptr;
  for (auto& piece : pieces) {
    piece = std::wcstok(&piece == pieces.data() ? address : nullptr, L".", &rest);
    if (piece == nullptr) return {};
  }
  return Format(L"%s.%s.%s.%s.%s", pieces[3], pieces[2], pieces[1], pieces[0], L"IN-ADDR.ARPA");
} catch (const std::exception&) {
  return {};
}

IP_ADDR_STRING* CUtilLink::AllocDNSList(int& count) try {
  static constexpr wchar_t kFunction[] = L"CUtilLink::AllocDNSList";
  Log4cxxMgr::LogOutDetail(0, 0, kFunction, __LINE__, L"START");
  count = 0;
  const auto parameters = ReadNetwork(kFunction);
  if (!parameters) return nullptr;
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__,
                           Format(L"LocalMachineName: %s,Domain Name: %s", parameters->host_name,
                                  parameters->domain_name));

  Chain chain(nullptr, FreeDNSList);
  IP_ADDR_STRING* last = nullptr;
  int nodes = 0;
  CString list;
  for (const std::string& server : parameters->dns_servers) {
    IP_ADDR_STRING* const node = NewNode(server);
    if (last == nullptr) {
      chain.reset(node);
    } else {
      last->Next = node;
    }
    last = node;
    ++nodes;
    list += Format(nodes == 1 ? L"DNS Servers: [%s]" : L",[%s]", Widen(server));
  }
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, list);
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, Format(L"Num Of DNS Servers : %d", nodes));
  Log4cxxMgr::LogOutDetail(0, 0, kFunction, __LINE__, L"END");
  count = nodes;
  return chain.release();
} catch (const std::exception&) {
  Log4cxxMgr::LogOutDetail(5, 0, L"CUtilLink::AllocDNSList", __LINE__,
                           L"Error allocating memory needed to call GetNetworkParams");
  return nullptr;
}

void CUtilLink::FreeDNSList(IP_ADDR_STRING* first) {
  while (first != nullptr) {
    const IP_ADDR_STRING* const node = first;
    first = node->Next;
    delete node;
  }
}

}  // namespace vk::tq
