#include "foundation/access_list.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace vk::tq {

AccessList GrantFullAccess(const AccessList& list, const AccountId& account, int mode) {
  const auto first_inherited =
      std::find_if(list.entries.begin(), list.entries.end(),
                   [](const AccessEntry& entry) { return (entry.flags & kInherited) != 0; });
  AccessList granted = list;
  granted.entries.clear();
  std::copy_if(list.entries.begin(), first_inherited, std::back_inserter(granted.entries),
               [&](const AccessEntry& entry) { return entry.account != account; });
  granted.entries.push_back(
      {.account = account,
       .rights = kGenericAll,
       .flags = static_cast<std::uint8_t>(mode == 1 ? 0 : kObjectInherit | kContainerInherit)});
  granted.entries.insert(granted.entries.end(), first_inherited, list.entries.end());
  return granted;
}

const wchar_t* SecurityStepText(SecurityStep step) {
  static constexpr std::array<std::pair<SecurityStep, const wchar_t*>, 15> kTexts = {{
      {SecurityStep::kLookUpAccount, L"SID取得失敗"},
      {SecurityStep::kAllocate, L"ヒープ確保失敗"},
      {SecurityStep::kQuerySize, L"ACE取得失敗"},
      {SecurityStep::kFetchDescriptor, L"GetFileSecurity失敗"},
      {SecurityStep::kInitializeDescriptor, L"InitializeSecurityDescriptor確保失敗"},
      {SecurityStep::kQueryList, L"GetAclInformation確保失敗"},
      {SecurityStep::kInitializeList, L"InitializeAcl失敗"},
      {SecurityStep::kGetEntry, L"GetAce失敗"},
      {SecurityStep::kAddEntry, L"AddAce失敗"},
      {SecurityStep::kAddAllowEntry, L"AddAccessAllowedAce失敗"},
      {SecurityStep::kAddInheritedAllowEntry, L"AddAccessAllowedAceEx失敗"},
      {SecurityStep::kSetList, L"SetSecurityDescriptorDacl失敗"},
      {SecurityStep::kGetControl, L"GetSecurityDescriptorControl失敗"},
      {SecurityStep::kSetControl, L"_SetSecurityDescriptorControl失敗"},
      {SecurityStep::kWriteDescriptor, L"SetFileSecurity失敗"},
  }};
  const auto found = std::find_if(kTexts.begin(), kTexts.end(),
                                  [&](const auto& text) { return text.first == step; });
  return found == kTexts.end() ? L"" : found->second;
}

}  // namespace vk::tq
