#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <tuple>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/posix/native.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

bool IsDotName(std::string_view name) { return name == "." || name == ".."; }

// A directory that is read entry by entry.
class Directory {
 public:
  // False, with the last error set, when it cannot be opened.
  bool Open(const std::string& native) {
    directory_.reset(opendir(native.c_str()));
    if (directory_ != nullptr) return true;
    FailWithErrno();
    if (GetLastError() == kErrorFileNotFound) SetLastError(kErrorPathNotFound);
    return false;
  }

  // Calls `visit` with each of the next entries, at most so many. False, with the last error set,
  // when they cannot be read.
  template <class Visit>
  bool Read(std::size_t most, const Visit& visit) {
    for (std::size_t count = 0; count < most; ++count) {
      errno = 0;
      const dirent* entry = readdir(directory_.get());
      if (entry == nullptr) {
        is_at_end_ = true;
        return errno == 0 || FailWithErrno();
      }
      if (!IsDotName(entry->d_name)) visit(*entry);
    }
    return true;
  }
  bool is_at_end() const { return is_at_end_; }

  // An entry whose type the directory does not tell, or that is a link, is looked at.
  bool IsDirectory(const dirent& entry) const {
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return entry.d_type == DT_DIR;
    return IsDirectory(entry.d_name);
  }
  bool IsDirectory(const char* name) const {
    struct stat info {};
    return fstatat(dirfd(directory_.get()), name, &info, 0) == 0 && S_ISDIR(info.st_mode);
  }

  // Whether there is an entry of a name, also a link that leads nowhere.
  bool Has(const char* name) const {
    struct stat info {};
    return fstatat(dirfd(directory_.get()), name, &info, AT_SYMLINK_NOFOLLOW) == 0;
  }

 private:
  std::unique_ptr<DIR, CloseDirectory> directory_;
  bool is_at_end_ = false;
};

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

// '*' stands for any run of characters and '?' for one, or for none at the end of the name.
bool MatchesWildcard(std::wstring_view pattern, std::wstring_view name) {
  std::size_t p = 0;
  std::size_t n = 0;
  std::size_t star = std::wstring_view::npos;
  std::size_t resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == L'*') {
      star = p++;
      resume = n;
    } else if (p < pattern.size() && (pattern[p] == L'?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (star != std::wstring_view::npos) {
      p = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of(L"*?", p) == std::wstring_view::npos;
}

// Both sides are upper case. "*.*" and "name.*" find names without a point as well.
bool MatchesPattern(std::wstring_view pattern, std::wstring_view name) {
  if (MatchesWildcard(pattern, name)) return true;
  return pattern.ends_with(L".*") && name.find(L'.') == std::wstring_view::npos &&
         MatchesWildcard(pattern.substr(0, pattern.size() - 2), name);
}

struct Hit {
  FoundFile file;
  std::wstring upper_name;
  int rank = 0;
};

std::optional<std::vector<FoundFile>> InOrder(std::vector<Hit> hits) {
  if (hits.empty()) {
    SetLastError(kErrorFileNotFound);
    return {};
  }
  std::sort(hits.begin(), hits.end(), [](const Hit& left, const Hit& right) {
    return std::tie(left.rank, left.upper_name, left.file.name) <
           std::tie(right.rank, right.upper_name, right.file.name);
  });
  std::vector<FoundFile> files;
  files.reserve(hits.size());
  for (Hit& hit : hits) files.push_back(std::move(hit.file));
  return files;
}

bool IsThreeDigits(std::string_view extension) {
  return extension.size() == 3 && extension.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::optional<std::vector<FoundFile>> FindFiles(const std::wstring& directory,
                                                std::wstring_view pattern) {
  const std::wstring upper_pattern = ToUpper(pattern);
  const bool matches_all = upper_pattern == L"*" || upper_pattern == L"*.*";
  Directory open;
  std::vector<Hit> hits;
  const bool is_read =
      open.Open(PathToNative(directory)) && open.Read(kAll, [&](const dirent& entry) {
        std::wstring name = NameFromNative(entry.d_name);
        std::wstring upper_name = ToUpper(name);
        if (!matches_all && !MatchesPattern(upper_pattern, upper_name)) return;
        hits.push_back({{std::move(name), open.IsDirectory(entry)}, std::move(upper_name)});
      });
  if (!is_read) return {};
  // Where the pattern matches "." the search has a hit, although that name is left out.
  if (hits.empty() && MatchesPattern(upper_pattern, L".")) return std::vector<FoundFile>();
  return InOrder(std::move(hits));
}

namespace {

// The family of a base path: where it lies, and how its names begin.
struct Family {
  explicit Family(const std::wstring& base) {
    const PathPieces pieces = SplitPath(base);
    const std::wstring folder = std::wstring(pieces.drive) + std::wstring(pieces.directory);
    directory = folder.empty() ? "." : PathToNative(folder);
    prefix = NameToNative(base.substr(folder.size())) + ".";
  }

  // False, with the last error set. A base that names no file has no family: every hidden file of
  // the folder would be one.
  bool Open() {
    if (prefix == ".") return Fail(kErrorFileNotFound);
    return entries.Open(directory);
  }

  bool Read(std::size_t most) {
    return entries.Read(most, [this](const dirent& entry) {
      const std::string_view name = entry.d_name;
      if (!name.starts_with(prefix)) return;
      Hit hit{{NameFromNative(name), entries.IsDirectory(entry)}, {}};
      hit.upper_name = ToUpper(hit.file.name);
      hit.rank = hit.file.is_directory ? 2 : IsThreeDigits(name.substr(prefix.size())) ? 0 : 1;
      hits.push_back(std::move(hit));
    });
  }

  std::string directory;
  std::string prefix;
  Directory entries;
  std::vector<Hit> hits;
};

}  // namespace

std::optional<std::vector<FoundFile>> FindFamily(const std::wstring& base) {
  Family family(base);
  if (!family.Open() || !family.Read(kAll)) return {};
  return InOrder(std::move(family.hits));
}

std::optional<FoundFile> FindFirstOfFamily(const std::wstring& base) {
  // About as many entries as one call of the system gives; from there on asking for names is faster
  // than reading on.
  constexpr std::size_t kFew = 512;
  constexpr int kNames = 100;

  Family family(base);
  if (!family.Open() || !family.Read(kFew)) return {};
  for (int number = 0; number < kNames && !family.entries.is_at_end(); ++number) {
    const char digits[] = {'0', static_cast<char>('0' + number / 10),
                           static_cast<char>('0' + number % 10), '\0'};
    const std::string name = family.prefix + digits;
    if (family.entries.Has(name.c_str()) && !family.entries.IsDirectory(name.c_str())) {
      return FoundFile{NameFromNative(name)};
    }
  }
  if (!family.Read(kAll)) return {};
  auto found = InOrder(std::move(family.hits));
  if (!found) return {};
  return std::move(found->front());
}

}  // namespace vk::tq
