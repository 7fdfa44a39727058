// Access lists as POSIX ACLs. A named entry that counts for the object is one of its access ACL, an
// inheritable one also of a directory's default ACL. docs/decisions/file-rights.md tells what the
// two models do not share.
#include "platform/file_security.h"

#include <acl/libacl.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/acl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <utility>

#include "platform/posix/native.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

constexpr std::uint32_t kGenericRead = 0x80000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;
constexpr std::uint32_t kGenericExecute = 0x20000000;

constexpr std::uint8_t kInheritable = kObjectInherit | kContainerInherit;

// ---- Accounts ----

enum class Kind : unsigned char { kGroup = 'g', kUser = 'u' };

AccountId MakeAccount(Kind kind, id_t id) {
  AccountId account;
  account.bytes.resize(1 + sizeof id);
  account.bytes[0] = static_cast<unsigned char>(kind);
  std::memcpy(account.bytes.data() + 1, &id, sizeof id);
  return account;
}

struct Account {
  acl_tag_t tag;
  id_t id;
  auto operator<=>(const Account&) const = default;  // NOLINT(modernize-use-nullptr): there is none
};

std::optional<Account> ParseAccount(const AccountId& account) {
  const auto& bytes = account.bytes;
  if (bytes.size() != 1 + sizeof(id_t)) return std::nullopt;
  const auto kind = static_cast<Kind>(bytes[0]);
  if (kind != Kind::kGroup && kind != Kind::kUser) return std::nullopt;
  Account parsed{kind == Kind::kGroup ? ACL_GROUP : ACL_USER, 0};
  std::memcpy(&parsed.id, bytes.data() + 1, sizeof parsed.id);
  return parsed;
}

// Asks the account data base through one of its two look-ups, which differ in their record alone,
// for the member that is the id. Nothing when it knows no such name.
template <class Record, class LookUp>
std::optional<id_t> FindId(const LookUp& look_up, id_t Record::*id, const std::string& name) {
  std::vector<char> buffer(1024);
  for (;;) {
    Record record{};
    Record* found = nullptr;
    const int error = look_up(name.c_str(), &record, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) {
      buffer.resize(buffer.size() * 2);
    } else if (error != EINTR) {
      return found != nullptr ? std::optional(record.*id) : std::nullopt;
    }
  }
}

// ---- POSIX ACLs ----

struct AclDeleter {
  void operator()(void* acl) const noexcept { acl_free(acl); }
};
using AclHandle = std::unique_ptr<std::remove_pointer_t<acl_t>, AclDeleter>;

constexpr unsigned kPermissions[] = {ACL_READ, ACL_WRITE, ACL_EXECUTE};
constexpr unsigned kAllPermissions = ACL_READ | ACL_WRITE | ACL_EXECUTE;

// An ACL with its mask worked in: each permission is what really counts. So a mask that is made
// anew, wide enough for a new entry, gives nobody else more than he had.
struct EffectiveAcl {
  unsigned owner = 0;
  unsigned group = 0;
  unsigned other = 0;
  std::map<Account, unsigned> named;

  unsigned Mask() const {
    unsigned mask = group;
    for (const auto& [account, permissions] : named) mask |= permissions;
    return mask;
  }
};

// What cannot be told of a list is no right that is missing: whoever writes the list back would take
// it away, from the owner too.
int Require(int result) {
  if (result < 0) throw std::bad_alloc();
  return result;
}

unsigned PermissionsOf(acl_entry_t entry) {
  acl_permset_t set = nullptr;
  unsigned permissions = 0;
  Require(acl_get_permset(entry, &set));
  for (const unsigned one : kPermissions) {
    if (Require(acl_get_perm(set, one)) == 1) permissions |= one;
  }
  return permissions;
}

EffectiveAcl ReadAcl(acl_t acl) {
  EffectiveAcl read;
  unsigned mask = kAllPermissions;
  acl_entry_t entry = nullptr;
  for (int which = ACL_FIRST_ENTRY; Require(acl_get_entry(acl, which, &entry)) == 1;
       which = ACL_NEXT_ENTRY) {
    acl_tag_t tag = ACL_UNDEFINED_TAG;
    Require(acl_get_tag_type(entry, &tag));
    const unsigned permissions = PermissionsOf(entry);
    if (tag == ACL_USER_OBJ) read.owner = permissions;
    if (tag == ACL_GROUP_OBJ) read.group = permissions;
    if (tag == ACL_OTHER) read.other = permissions;
    if (tag == ACL_MASK) mask = permissions;
    if (tag != ACL_USER && tag != ACL_GROUP) continue;
    const AclHandle id(static_cast<acl_t>(acl_get_qualifier(entry)));
    if (!id) throw std::bad_alloc();
    read.named[{tag, *reinterpret_cast<const id_t*>(id.get())}] = permissions;
  }
  read.group &= mask;
  for (auto& [account, permissions] : read.named) permissions &= mask;
  return read;
}

bool AddEntry(acl_t& acl, acl_tag_t tag, unsigned permissions, const id_t* id = nullptr) {
  acl_entry_t entry = nullptr;
  acl_permset_t set = nullptr;
  if (acl_create_entry(&acl, &entry) != 0 || acl_set_tag_type(entry, tag) != 0) return false;
  if (id != nullptr && acl_set_qualifier(entry, id) != 0) return false;
  return acl_get_permset(entry, &set) == 0 && acl_clear_perms(set) == 0 &&
         acl_add_perm(set, permissions) == 0;
}

// Null when there is no memory.
AclHandle MakeAcl(const EffectiveAcl& from) {
  acl_t acl = acl_init(static_cast<int>(from.named.size() + 4));
  bool is_made = acl != nullptr && AddEntry(acl, ACL_USER_OBJ, from.owner) &&
                 AddEntry(acl, ACL_GROUP_OBJ, from.group) && AddEntry(acl, ACL_OTHER, from.other);
  for (const auto& [account, permissions] : from.named) {
    is_made = is_made && AddEntry(acl, account.tag, permissions, &account.id);
  }
  if (!from.named.empty()) is_made = is_made && AddEntry(acl, ACL_MASK, from.Mask());
  AclHandle made(acl);
  if (!is_made) made.reset();
  return made;
}

// A file or directory, held open so that both of its ACLs are those of one object, and so that
// no link is followed.
class Object {
 public:
  // False, with the last error set, when there is none or when it is a link.
  bool Open(const std::wstring& path) {
    descriptor_.Reset(open(PathToNative(path).c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!descriptor_ || fstat(descriptor_.get(), &status) != 0) return FailWithErrno();
    if (S_ISLNK(status.st_mode)) return Fail(kErrorAccessDenied);
    mode_ = status.st_mode;
    // The only name by which libacl takes an object that is open in this way.
    name_ = "/proc/self/fd/" + std::to_string(descriptor_.get());
    return true;
  }

  bool is_directory() const { return S_ISDIR(mode_); }

  // What generic all access means here.
  unsigned all_permissions() const {
    if (is_directory() || (mode_ & S_IXUSR) != 0) return kAllPermissions;
    return ACL_READ | ACL_WRITE;
  }

  // A file system without ACLs has what the mode says.
  AclHandle Get(acl_type_t type) const {
    AclHandle acl(acl_get_file(name_.c_str(), type));
    if (!acl && errno == EOPNOTSUPP) {
      acl.reset(type == ACL_TYPE_ACCESS ? acl_from_mode(mode_) : acl_init(0));
    }
    return acl;
  }

  bool Set(acl_type_t type, const AclHandle& acl) const {
    return acl_set_file(name_.c_str(), type, acl.get()) == 0;
  }

 private:
  FileDescriptor descriptor_;
  mode_t mode_ = 0;
  std::string name_;
};

SecurityStep FailAt(SecurityStep step) {
  FailWithErrno();
  return step;
}

SecurityStep FailAt(SecurityStep step, ErrorCode code) {
  SetLastError(code);
  return step;
}

// ---- Entries and permissions ----

std::uint32_t RightsOf(unsigned permissions) {
  return ((permissions & ACL_READ) != 0 ? kGenericRead : 0) |
         ((permissions & ACL_WRITE) != 0 ? kGenericWrite : 0) |
         ((permissions & ACL_EXECUTE) != 0 ? kGenericExecute : 0);
}

unsigned PermissionsFor(std::uint32_t rights, unsigned all) {
  if ((rights & kGenericAll) != 0) return all;
  return ((rights & kGenericRead) != 0 ? ACL_READ : 0U) |
         ((rights & kGenericWrite) != 0 ? ACL_WRITE : 0U) |
         ((rights & kGenericExecute) != 0 ? ACL_EXECUTE : 0U);
}

AccessEntry MakeEntry(const Account& account, unsigned permissions, std::uint8_t flags) {
  const Kind kind = account.tag == ACL_GROUP ? Kind::kGroup : Kind::kUser;
  return {MakeAccount(kind, account.id), RightsOf(permissions), flags};
}

// Replaces the named entries of the two ACLs by those of the list.
SecurityStep TakeEntries(const AccessList& list, const Object& object, EffectiveAcl& access,
                         EffectiveAcl& inherited) {
  access.named.clear();
  inherited.named.clear();
  for (const AccessEntry& entry : list.entries) {
    if (!entry.is_allow) return FailAt(SecurityStep::kAddEntry, kErrorNotSupported);
    const std::optional<Account> account = ParseAccount(entry.account);
    if (!account) return FailAt(SecurityStep::kAddEntry, kErrorInvalidParameter);
    if ((entry.flags & kInheritOnly) == 0) {
      access.named[*account] |= PermissionsFor(entry.rights, object.all_permissions());
    }
    if (object.is_directory() && (entry.flags & kInheritable) != 0) {
      inherited.named[*account] |= PermissionsFor(entry.rights, kAllPermissions);
    }
  }
  return SecurityStep::kNone;
}

}  // namespace

SecurityStep LookUpAccount(const std::wstring& name, AccountId& account) {
  const std::optional<std::string> native = EncodeText(kCodePageUtf8, name);
  if (native && !native->empty() && native->find('\0') == std::string::npos) {
    if (const auto group_id = FindId(getgrnam_r, &group::gr_gid, *native)) {
      account = MakeAccount(Kind::kGroup, *group_id);
      return SecurityStep::kNone;
    }
    if (const auto user_id = FindId(getpwnam_r, &passwd::pw_uid, *native)) {
      account = MakeAccount(Kind::kUser, *user_id);
      return SecurityStep::kNone;
    }
  }
  return FailAt(SecurityStep::kLookUpAccount, kErrorNoneMapped);
}

SecurityStep ReadAccessList(const std::wstring& path, AccessList& list) {
  Object object;
  if (!object.Open(path)) return SecurityStep::kQuerySize;
  const AclHandle acl = object.Get(ACL_TYPE_ACCESS);
  if (!acl) return FailAt(SecurityStep::kFetchDescriptor);
  EffectiveAcl inherited;
  if (object.is_directory()) {
    const AclHandle default_acl = object.Get(ACL_TYPE_DEFAULT);
    if (!default_acl) return FailAt(SecurityStep::kFetchDescriptor);
    inherited = ReadAcl(default_acl.get());
  }

  list = {};
  for (const auto& [account, permissions] : ReadAcl(acl.get()).named) {
    const auto same = inherited.named.find(account);
    const bool is_inherited = same != inherited.named.end() && same->second == permissions;
    list.entries.push_back(MakeEntry(account, permissions, is_inherited ? kInheritable : 0));
    if (is_inherited) inherited.named.erase(same);
  }
  for (const auto& [account, permissions] : inherited.named) {
    list.entries.push_back(MakeEntry(account, permissions, kInheritable | kInheritOnly));
  }
  return SecurityStep::kNone;
}

SecurityStep WriteAccessList(const std::wstring& path, const AccessList& list) {
  Object object;
  if (!object.Open(path)) return SecurityStep::kWriteDescriptor;
  const AclHandle old_access = object.Get(ACL_TYPE_ACCESS);
  if (!old_access) return FailAt(SecurityStep::kWriteDescriptor);
  EffectiveAcl access = ReadAcl(old_access.get());
  EffectiveAcl inherited = access;
  bool has_default = false;
  if (object.is_directory()) {
    const AclHandle old_default = object.Get(ACL_TYPE_DEFAULT);
    if (!old_default) return FailAt(SecurityStep::kWriteDescriptor);
    has_default = acl_entries(old_default.get()) > 0;
    if (has_default) inherited = ReadAcl(old_default.get());
  }
  const SecurityStep step = TakeEntries(list, object, access, inherited);
  if (step != SecurityStep::kNone) return step;

  const AclHandle new_access = MakeAcl(access);
  const AclHandle new_default = MakeAcl(inherited);
  if (!new_access || !new_default) return FailAt(SecurityStep::kAllocate, kErrorNotEnoughMemory);
  if (!object.Set(ACL_TYPE_ACCESS, new_access)) return FailAt(SecurityStep::kWriteDescriptor);
  const bool needs_default = has_default || !inherited.named.empty();
  if (needs_default && !object.Set(ACL_TYPE_DEFAULT, new_default)) {
    FailWithErrno();
    object.Set(ACL_TYPE_ACCESS, old_access);  // all of the list, or nothing
    return SecurityStep::kWriteDescriptor;
  }
  return SecurityStep::kNone;
}

}  // namespace vk::tq
