/// Files: status, reading, writing in place, renaming, moving, removing, folders, searching.
///
/// Every operation that fails sets the last error. Opening for writing never follows a link that
/// stands in the place of the file itself; opening for reading follows one only when it belongs to
/// the superuser or to the caller. Any other link fails with 5: somebody may have planted it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/secure_memory.h"
#include "platform/types.h"

namespace vk::tq {

struct FileStatus {
  bool is_directory = false;
  std::uint64_t size = 0;          ///< bytes
  std::int64_t last_write_ns = 0;  ///< nanoseconds since 1970-01-01 UTC, as far as they go

  /// The second that the last write lies in, also before 1970.
  CTime last_write() const {
    using std::chrono::floor, std::chrono::nanoseconds, std::chrono::seconds;
    return CTime(floor<seconds>(nanoseconds(last_write_ns)).count());
  }
};

/// The status of a file or directory; nothing (2 or 3) when there is none.
std::optional<FileStatus> GetFileStatus(const std::wstring& path);

/// Whether two paths lead to one file, by links or other spellings. False when one of them leads to
/// none.
bool IsSameFile(const std::wstring& left, const std::wstring& right);

/// A file that is open for reading, shared with every other reader. Its lock keeps each
/// InPlaceWriter out until it is closed, and waits for one that is at work. After 0.2 s it is read
/// without the lock, as it then stands: somebody who holds the lock must not stop all others. Where
/// a writer was killed while it replaced the contents, they are the new ones.
class InputFile {
 public:
  InputFile() = default;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  /// A directory fails with 5. Also tells the status that the file then has.
  bool Open(const std::wstring& path, FileStatus& status);
  bool Open(const std::wstring& path) {
    FileStatus ignored;
    return Open(path, ignored);
  }
  /// The same for a file that nobody writes in place: for less than the lock costs.
  bool OpenUnlocked(const std::wstring& path);
  bool is_open() const { return handle_ != kClosed; }
  /// As the destructor does; leaves the last error alone.
  void Close();
  /// The status of the open file, whatever has become of its name.
  std::optional<FileStatus> Status() const;
  /// Reads until the buffer is full or the file ends; the number of bytes read, or nothing on an
  /// error. Without the lock that can be 32: a writer ended meanwhile, and another attempt reads
  /// what it wrote.
  std::optional<std::size_t> Read(void* buffer, std::size_t size);

 private:
  bool Open(const std::wstring& path, FileStatus& status, bool is_locked);

  static constexpr std::intptr_t kClosed = -1;
  static constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};
  std::intptr_t handle_ = kClosed;
  std::uint64_t size_ = kNoLimit;  ///< of the copy that stands for the contents
  std::uint64_t left_ = kNoLimit;
};

/// A whole file, wiped when it is given back; nothing on failure.
std::optional<SecureBytes> ReadFile(const std::wstring& path);

/// Writes a file in place, so that a full disk, a failed write or a kill at any moment loses as
/// little as possible: the old contents stay until the new length is reserved, and what lies behind
/// the new contents is cut off last. Contents of more than a memory page, which a kill could leave
/// half new, are first written behind all that the file holds, when they come with one call of at
/// most 1 MiB and there is room: whoever opens the file then finds the old contents or the new ones.
///
///   InPlaceWriter file;
///   if (!file.Open(path, size)) ...   // the old contents are whole
///   if (!file.Write(data, size)) ...  // any number of calls, size bytes in all
///   if (!file.Commit()) ...
///
/// From Open to Commit or destruction, or until its process ends, the file is locked: each reader
/// finds the old contents or the new ones, and no writer tears those of another. Open waits 10 s for
/// another writer and then fails with 32. For a reader it waits 1 s, so nobody should write a file
/// that he still has open for reading, and then goes on without the lock: whoever may only read the
/// file must not be able to stop its writers.
/// Where the file system has no such locks (open-file-description locks), all go on without. A child
/// that the process forks meanwhile shares the lock: if only the parent is killed, the file stays
/// locked until the child ends or runs another program.
///
/// A file that did not exist before appears under its name with Commit only, where the file system
/// can do that, and is removed again when the writer is destroyed without one.
class InPlaceWriter {
 public:
  InPlaceWriter() = default;
  InPlaceWriter(const InPlaceWriter&) = delete;
  InPlaceWriter& operator=(const InPlaceWriter&) = delete;
  /// Without a Commit: gives a reservation behind the old contents back, as long as nothing has
  /// been written.
  ~InPlaceWriter();

  /// Opens or creates the file and reserves the final size. On failure nothing has changed on disk.
  bool Open(const std::wstring& path, std::uint64_t final_size);
  bool Write(const void* data, std::size_t size);
  /// Cuts the file to what has been written, or to a size below that, and closes it.
  bool Commit() { return Commit(written_); }
  bool Commit(std::uint64_t size);

 private:
  bool CreateNew(const std::string& native);
  bool OpenExisting(const std::string& native);
  bool Reserve(std::uint64_t size);
  void TakeBack();

  std::intptr_t handle_ = -1;
  std::uint64_t old_size_ = 0;
  std::uint64_t final_size_ = 0;
  std::uint64_t written_ = 0;
  bool is_new_ = false;      ///< made by this writer
  bool is_unnamed_ = false;  ///< made, and not visible yet
  std::string native_path_;
};

/// Writes a whole file in place.
bool WriteFileInPlace(const std::wstring& path, const void* data, std::size_t size);

/// Gives a file another name in the same file system. Fails with 183 when a different file has that
/// name, also when it came to be at the same moment; succeeds when both names are the same.
///
/// A kill leaves the old name or the new one. Where the file system cannot rename without
/// replacing, a kill can leave both, of one file: the lower of two numbers is then the first of the
/// family, and the next rename removes the other one.
bool RenameFile(const std::wstring& from, const std::wstring& to);

/// Moves a file to another name, also in another file system, and puts it in the place of a file
/// that has the name. Whoever opens the new name finds the old file or the moved one, always whole;
/// when the call returns, the move is on disk.
///
/// Between file systems the contents, the rights, the owner and the group where that is allowed, and
/// the time of the last write are copied to a file that nobody else sees, flushed and put in place;
/// only then the old name goes. Meanwhile the file is locked as by an InPlaceWriter, and with 32 after as long
/// a wait; a writer that waited for it writes a new file of the old name, and of two movers the later
/// one finds no source. That is for ordinary files; links are refused (5), never followed. On failure
/// the source is whole, and nothing partial stands under the new name. Fails with 2 when there is no
/// source, or another process takes it away meanwhile, with 3 when the target's folder is missing,
/// and with 5 when the target is a directory or the old name cannot be removed.
bool MoveFileReplacing(const std::wstring& from, const std::wstring& to);

/// Removes a file. A directory fails with 5.
bool RemoveFile(const std::wstring& path);

/// Makes one directory; fails with 183 when the name is taken and with 3 when its parent is
/// missing.
bool CreateFolder(const std::wstring& path);

/// Makes a directory with all its parents; succeeds when it is there already, also when another
/// process made it.
bool CreateFolders(const std::wstring& path);

/// One hit of a search: a bare name, without its directory.
struct FoundFile {
  std::wstring name;
  bool is_directory = false;
};

/// The entries of a directory whose names match a pattern with * and ?, in the upper-case lexical
/// order of their names, with "." and ".." left out. Case does not count; "*.*" and "name.*" also
/// find names without a point. Nothing when no entry matches (2) or there is no such directory (3);
/// an empty directory is no failure for a pattern that matches every name.
std::optional<std::vector<FoundFile>> FindFiles(const std::wstring& directory,
                                                std::wstring_view pattern);

/// The family of a base path: the entries named like its last component, followed by a point and
/// anything. The name is taken to the letter: nothing in it is a pattern, and case counts where the
/// file system tells it apart. Files with an extension of three digits come first, then the other
/// files, then directories, each in upper-case lexical order. Nothing when there is none (2), as
/// for a base that ends in a separator, or no such directory (3).
std::optional<std::vector<FoundFile>> FindFamily(const std::wstring& base);

/// The first of the family that FindFamily would give, without a search through all of a folder
/// that holds many files when it is a numbered one below 100.
std::optional<FoundFile> FindFirstOfFamily(const std::wstring& base);

}  // namespace vk::tq
