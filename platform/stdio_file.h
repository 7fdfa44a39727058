/// A text file, read and written line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace vk::tq {

/// A buffered text file. An object belongs to one thread at a time.
///
/// Lines end at a line feed; a carriage return in front of it is no part of the line, and neither
/// is a byte-order mark at the start of the file. A file that begins with the mark of UTF-16LE or
/// UTF-8 is read, and gets what is written, in that form; any other in the ANSI code page. Bytes
/// that are no character become U+FFFD. A NUL is a character like any other, and a line may be of
/// any length.
///
/// Reading starts at the beginning of the file, and writing appends to its end.
class TQ_EXPORT CStdioFile : public CObject {
 public:
  /// The flags of Open: one of the first three, and any of the others.
  enum OpenFlags : unsigned int {
    modeRead = 0x0000,
    modeWrite = 0x0001,  ///< for an existing file, unless modeCreate is there too
    modeReadWrite = 0x0002,
    shareExclusive = 0x0010,  ///< the share modes ask for nothing: a file is shared with everybody
    shareDenyWrite = 0x0020,
    shareDenyRead = 0x0030,
    shareDenyNone = 0x0040,
    modeNoInherit = 0x0080,   ///< always so
    modeCreate = 0x1000,      ///< with a mode that writes: makes the file, or empties it
    modeNoTruncate = 0x2000,  ///< with modeCreate: leaves what is in the file
    typeText = 0x4000,        ///< the default: a line feed is written with a carriage return
    typeBinary = 0x8000,      ///< what is written stands as it is
  };

  CStdioFile();
  CStdioFile(const CStdioFile&) = delete;
  CStdioFile& operator=(const CStdioFile&) = delete;
  /// Closes the file.
  ~CStdioFile() override;

  /// Opens a file, after closing the one that is open. False, with the last error set, on failure:
  /// 2 or 3 when there is none, 5 for a directory or a missing right, 87 when the flags contradict
  /// each other. Opening for writing never follows a link that stands in the place of the file,
  /// for reading only one of the caller's own or the superuser's.
  bool Open(const wchar_t* path, unsigned int flags);

  /// The next line, without its line end. False, and an empty text, at the end of the file or when
  /// it cannot be read. A last line without a line end counts; nothing behind the last line end
  /// does not.
  bool ReadString(CString& line);

  /// Writes a text as it is, without adding a line end. False, with the last error set, when not
  /// all of it could be written.
  bool WriteString(const wchar_t* text);

  /// Closes the file. False when it was open and a write has failed since it was opened, or its
  /// close does.
  bool Close();

 protected:
  /// As ReadString; the view is valid until the next call of the object.
  bool ReadLine(std::wstring_view& line);

 private:
  bool OpenHandle(const wchar_t* path, unsigned int flags);
  bool ReadMark();
  bool Refill();
  bool ReadChunk();
  std::size_t CompleteSize(std::size_t searched) const;

  std::intptr_t handle_;
  unsigned code_page_ = 0;
  bool is_text_ = true;
  bool has_failed_ = false;   ///< a write
  bool at_end_ = true;        ///< nothing more to read
  std::uint64_t offset_ = 0;  ///< of the next byte to read
  std::string bytes_;         ///< read, and not decoded yet: less than a line
  std::wstring text_;         ///< decoded: whole lines
  std::size_t next_ = 0;      ///< the next line in it
};

}  // namespace vk::tq
