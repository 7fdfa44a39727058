/// Accounts, and the access list of a file or directory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vk::tq {

/// An account of this machine, user or group, in the platform's own binary form. Two accounts are
/// the same when their bytes are.
struct AccountId {
  std::vector<unsigned char> bytes;
  bool operator==(const AccountId&) const = default;
};

/// Bits of AccessEntry::flags.
inline constexpr std::uint8_t kObjectInherit = 0x01;
inline constexpr std::uint8_t kContainerInherit = 0x02;
inline constexpr std::uint8_t kInheritOnly = 0x08;  ///< does not count for the object itself
inline constexpr std::uint8_t kInherited = 0x10;

/// Generic all access.
inline constexpr std::uint32_t kGenericAll = 0x10000000;

/// One entry of an access list.
struct AccessEntry {
  AccountId account;
  std::uint32_t rights = 0;
  std::uint8_t flags = 0;
  bool is_allow = true;
  bool operator==(const AccessEntry&) const = default;
};

/// An access list in order, and what its file says about inheriting it.
struct AccessList {
  std::vector<AccessEntry> entries;
  bool is_auto_inherited = false;
  bool is_protected = false;
  bool operator==(const AccessList&) const = default;
};

/// The step at which reading or writing an access list failed. Not every platform knows every step.
enum class SecurityStep {
  kNone,
  kLookUpAccount,
  kAllocate,
  kQuerySize,
  kFetchDescriptor,
  kInitializeDescriptor,
  kQueryList,
  kInitializeList,
  kGetEntry,
  kAddEntry,
  kAddAllowEntry,
  kAddInheritedAllowEntry,
  kSetList,
  kGetControl,
  kSetControl,
  kWriteDescriptor,
};

/// Each of these gives kNone on success, else the step that failed, with the last error set. A link
/// in place of the object is not followed: error 5.

/// The account of a name; kLookUpAccount, 1332, when there is none.
SecurityStep LookUpAccount(const std::wstring& name, AccountId& account);

SecurityStep ReadAccessList(const std::wstring& path, AccessList& list);

/// Replaces the access list of an object: all of it, or nothing. kWriteDescriptor with 5 for anybody
/// who does not own the object, and with 50 on a file system that keeps no lists. Not every platform
/// can say everything: what it cannot, it refuses at kAddEntry with 50.
SecurityStep WriteAccessList(const std::wstring& path, const AccessList& list);

}  // namespace vk::tq
