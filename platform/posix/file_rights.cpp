#include "platform/posix/file_rights.h"

#include <acl/libacl.h>
#include <sys/acl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <type_traits>
#include <vector>

#include "platform/posix/native.h"

namespace vk::tq {
namespace {

// For a file whose group becomes another: the members of the new one were anybody before, and those
// of the old one will be. Both keep what every group and anybody had in common.
bool LeaveGroup(acl_t acl) {
  constexpr unsigned kPermissions[] = {ACL_READ, ACL_WRITE, ACL_EXECUTE};
  unsigned common = ACL_READ | ACL_WRITE | ACL_EXECUTE;
  std::vector<acl_permset_t> changed;
  acl_entry_t entry = nullptr;
  int found = acl_get_entry(acl, ACL_FIRST_ENTRY, &entry);
  for (; found == 1; found = acl_get_entry(acl, ACL_NEXT_ENTRY, &entry)) {
    acl_tag_t tag = ACL_UNDEFINED_TAG;
    acl_permset_t set = nullptr;
    if (acl_get_tag_type(entry, &tag) != 0 || acl_get_permset(entry, &set) != 0) return false;
    if (tag == ACL_USER_OBJ || tag == ACL_USER) continue;
    for (const unsigned one : kPermissions) {
      if (acl_get_perm(set, one) != 1) common &= ~one;
    }
    if (tag == ACL_GROUP_OBJ || tag == ACL_OTHER) changed.push_back(set);
  }
  for (acl_permset_t set : changed) {
    if (acl_clear_perms(set) != 0 || acl_add_perm(set, common) != 0) return false;
  }
  return found == 0;
}

}  // namespace

bool CopyRights(int from, int to, const struct stat& info) {
  // Only a privileged program can give a file away, and others only to a group of theirs.
  const bool is_group_kept = fchown(to, info.st_uid, info.st_gid) == 0 ||
                             fchown(to, static_cast<uid_t>(-1), info.st_gid) == 0;
  std::unique_ptr<std::remove_pointer_t<acl_t>, int (*)(void*)> acl(
      acl_get_file(DescriptorPath(from).c_str(), ACL_TYPE_ACCESS), acl_free);
  if (!acl && errno == EOPNOTSUPP) acl.reset(acl_from_mode(info.st_mode));
  if (acl && !is_group_kept && !LeaveGroup(acl.get())) acl.reset();
  if (acl && acl_set_fd(to, acl.get()) == 0) return true;
  mode_t mode = 0;
  if (!acl || acl_equiv_mode(acl.get(), &mode) != 0) {
    // With a list the group's bits are those of its mask.
    mode = info.st_mode & (is_group_kept ? 0707 : 0700);
  }
  return fchmod(to, mode) == 0 || FailWithErrno();
}

}  // namespace vk::tq
