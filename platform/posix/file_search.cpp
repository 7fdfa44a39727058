#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
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

// An entry whose type the directory does not tell, or that is a link, is looked at.
bool IsDirectory(DIR* directory, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return entry.d_type == DT_DIR;
  struct stat info {};
  return fstatat(dirfd(directory), entry.d_name, &info, 0) == 0 && S_ISDIR(info.st_mode);
}

bool IsDotName(std::string_view name) { return name == "." || name == ".."; }

// Calls `visit` with each entry of a directory. False, with the last error set, when it cannot be
// read to its end.
template <class Visit>
bool ForEachEntry(const std::string& native, const Visit& visit) {
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(native.c_str()));
  if (directory == nullptr) {
    FailWithErrno();
    if (GetLastError() == kErrorFileNotFound) SetLastError(kErrorPathNotFound);
    return false;
  }
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(directory.get());
    if (entry == nullptr) return errno == 0 || FailWithErrno();
    if (!IsDotName(entry->d_name)) visit(directory.get(), *entry);
  }
}

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
  std::vector<Hit> hits;
  const bool is_read = ForEachEntry(PathToNative(directory), [&](DIR* open, const dirent& entry) {
    std::wstring name = NameFromNative(entry.d_name);
    std::wstring upper_name = ToUpper(name);
    if (!matches_all && !MatchesPattern(upper_pattern, upper_name)) return;
    hits.push_back({{std::move(name), IsDirectory(open, entry)}, std::move(upper_name)});
  });
  if (!is_read) return {};
  // Where the pattern matches "." the search has a hit, although that name is left out.
  if (hits.empty() && MatchesPattern(upper_pattern, L".")) return std::vector<FoundFile>();
  return InOrder(std::move(hits));
}

std::optional<std::vector<FoundFile>> FindFamily(const std::wstring& base) {
  const PathPieces pieces = SplitPath(base);
  const std::wstring folder = std::wstring(pieces.drive) + std::wstring(pieces.directory);
  const std::string directory = folder.empty() ? "." : PathToNative(folder);
  const std::string prefix = NameToNative(base.substr(folder.size())) + ".";
  if (prefix == ".") {
    // A base that names no file has no family. Without this, every hidden file of the folder would
    // be one.
    SetLastError(kErrorFileNotFound);
    return {};
  }
  std::vector<Hit> hits;
  const bool is_read = ForEachEntry(directory, [&](DIR* open, const dirent& entry) {
    const std::string_view name = entry.d_name;
    if (!name.starts_with(prefix)) return;
    Hit hit{{NameFromNative(name), IsDirectory(open, entry)}, {}};
    hit.upper_name = ToUpper(hit.file.name);
    hit.rank = hit.file.is_directory ? 2 : IsThreeDigits(name.substr(prefix.size())) ? 0 : 1;
    hits.push_back(std::move(hit));
  });
  if (!is_read) return {};
  return InOrder(std::move(hits));
}

}  // namespace vk::tq
