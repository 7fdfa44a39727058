/// How an access list changes when an account is given full access. Needs no file system.
#pragma once

#include "platform/file_security.h"

namespace vk::tq {

/// The list with one entry more: the entries of the object's own without those of the account, then
/// an entry that allows the account everything, then the inherited entries, which begin at the
/// first one that is marked so. With mode 1 the new entry is for the object alone; with any other
/// mode files and directories inherit it.
AccessList GrantFullAccess(const AccessList& list, const AccountId& account, int mode);

/// The log text for a step that failed.
const wchar_t* SecurityStepText(SecurityStep step);

}  // namespace vk::tq
