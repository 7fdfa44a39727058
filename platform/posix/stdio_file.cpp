#include "platform/stdio_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "platform/error.h"
#include "platform/path.h"
#include "platform/posix/native.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

constexpr int kClosed = -1;
// Wide, it still fits the nearer caches.
constexpr std::size_t kChunk = std::size_t{1} << 14;

constexpr std::string_view kMarkUtf8 = "\xEF\xBB\xBF";
constexpr std::string_view kMarkUtf16Le = "\xFF\xFE";

// The number of bytes read, which is less than asked for at the end of the file only, or -1.
ssize_t ReadAt(std::intptr_t handle, char* to, std::size_t size, std::uint64_t offset) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = RetryInterrupted([&] {
      return pread(static_cast<int>(handle), to + done, size - done,
                   static_cast<off_t>(offset + done));
    });
    if (got < 0) {
      FailWithErrno();
      return -1;
    }
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

// Behind the end of the file.
bool WriteAll(std::intptr_t handle, std::string_view bytes) {
  struct stat info {};
  if (fstat(static_cast<int>(handle), &info) != 0) return FailWithErrno();
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (!IsWithinSizeLimit(size + bytes.size())) return FailWithErrno();
  while (!bytes.empty()) {
    const ssize_t put = RetryInterrupted(
        [&] { return write(static_cast<int>(handle), bytes.data(), bytes.size()); });
    if (put < 0) return FailWithErrno();
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
  return true;
}

}  // namespace

CStdioFile::CStdioFile() : handle_(kClosed) {}

CStdioFile::~CStdioFile() { Close(); }

bool CStdioFile::Open(const wchar_t* path, unsigned int flags) {
  Close();
  return OpenHandle(path, flags) && ReadMark();
}

bool CStdioFile::OpenHandle(const wchar_t* path, unsigned int flags) {
  constexpr unsigned kAccess = modeWrite | modeReadWrite;
  if (path == nullptr || (flags & kAccess) == kAccess) return Fail(kErrorInvalidParameter);
  const bool writes = (flags & kAccess) != 0;
  const bool creates = writes && (flags & modeCreate) != 0;
  const std::string native = PathToNative(path);
  // The mark is read even by those who only write.
  constexpr int kFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  FileDescriptor file =
      writes ? FileDescriptor(open(native.c_str(), kFlags | (creates ? O_CREAT : 0), 0666))
             : OpenForReading(native);
  if (!file) {
    return creates && errno == ENOENT ? Fail(kErrorPathNotFound) : FailWithErrno();
  }
  struct stat info {};
  if (fstat(file.get(), &info) != 0) return FailWithErrno();
  // A pipe that somebody has put in the file's place would block.
  if (!S_ISREG(info.st_mode)) return Fail(kErrorAccessDenied);
  if (creates && (flags & modeNoTruncate) == 0 && ftruncate(file.get(), 0) != 0) {
    return FailWithErrno();
  }
  is_text_ = (flags & typeBinary) == 0;
  handle_ = file.Release();
  return true;
}

bool CStdioFile::ReadMark() {
  std::array<char, kMarkUtf8.size()> first{};
  const ssize_t got = ReadAt(handle_, first.data(), first.size(), 0);
  if (got < 0) {
    const LastErrorKeeper keep;
    Close();
    return false;
  }
  const std::string_view bytes(first.data(), static_cast<std::size_t>(got));
  code_page_ = kCodePageAnsi;
  if (bytes.starts_with(kMarkUtf8)) {
    code_page_ = kCodePageUtf8;
    offset_ = kMarkUtf8.size();
  } else if (bytes.starts_with(kMarkUtf16Le)) {
    code_page_ = kCodePageUtf16Le;
    offset_ = kMarkUtf16Le.size();
  }
  at_end_ = false;
  return true;
}

bool CStdioFile::Close() {
  offset_ = 0;
  at_end_ = true;
  bytes_.clear();
  text_.clear();
  next_ = 0;
  const bool has_failed = std::exchange(has_failed_, false);
  const int file = static_cast<int>(std::exchange(handle_, kClosed));
  if (file == kClosed) return true;
  return (close(file) == 0 || FailWithErrno()) && !has_failed;
}

bool CStdioFile::ReadString(CString& line) {
  std::wstring_view view;
  const bool is_read = ReadLine(view);
  line = view;
  return is_read;
}

bool CStdioFile::ReadLine(std::wstring_view& line) {
  line = {};
  if (next_ == text_.size() && !Refill()) return false;
  const std::wstring_view rest = std::wstring_view(text_).substr(next_);
  line = rest.substr(0, rest.find(L'\n'));
  next_ += std::min(line.size() + 1, rest.size());
  if (line.ends_with(L'\r')) line.remove_suffix(1);
  return true;
}

// Decodes as many whole lines as have been read at once. No character has a line feed within, in
// none of the code pages, so a cut behind one is safe.
bool CStdioFile::Refill() {
  while (!at_end_) {
    const std::size_t searched = bytes_.size();
    if (!ReadChunk()) return false;
    const std::size_t complete = at_end_ ? bytes_.size() : CompleteSize(searched);
    if (complete == 0) continue;
    auto text = DecodeText(code_page_, std::string_view(bytes_).substr(0, complete));
    if (!text) return false;
    text_ = std::move(*text);
    next_ = 0;
    bytes_.erase(0, complete);
    return !text_.empty();
  }
  return false;
}

bool CStdioFile::ReadChunk() {
  const std::size_t old_size = bytes_.size();
  bytes_.resize(old_size + kChunk);
  const ssize_t got = ReadAt(handle_, bytes_.data() + old_size, kChunk, offset_);
  const auto size = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  bytes_.resize(old_size + size);
  offset_ += size;
  at_end_ = size < kChunk;
  return got >= 0;
}

// The number of bytes up to and with the last line feed. There is none in front of `searched`.
std::size_t CStdioFile::CompleteSize(std::size_t searched) const {
  if (code_page_ != kCodePageUtf16Le) {
    const std::size_t hit = std::string_view(bytes_).substr(searched).rfind('\n');
    return hit == std::string_view::npos ? 0 : searched + hit + 1;
  }
  constexpr std::size_t kUnit = 2;
  for (std::size_t end = bytes_.size() / kUnit * kUnit; end > searched; end -= kUnit) {
    if (bytes_[end - 2] == '\n' && bytes_[end - 1] == '\0') return end;
  }
  return 0;
}

bool CStdioFile::WriteString(const wchar_t* text) {
  if (text == nullptr) return true;
  std::wstring wide = text;
  if (is_text_) ReplaceAll(wide, L"\n", L"\r\n");
  const auto bytes = EncodeText(code_page_, wide);
  const bool is_written = bytes && WriteAll(handle_, *bytes);
  has_failed_ |= !is_written;
  return is_written;
}

}  // namespace vk::tq
