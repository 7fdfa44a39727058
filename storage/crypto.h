/// The cipher and hash of the system: AES-256 in CBC mode under a key that is built at run time
/// from a key file.
#pragma once

#include "platform/types.h"

namespace vk::tq {

class AesCbc;
enum class CipherDirection;

/// Enciphers and deciphers bytes, texts and files. It is made and destroyed around each use and
/// belongs to one thread.
///
/// The key. The key file is `GetSpecialFolderPath(35)` +
/// "\ORV-INC\Velkorandia\Tessaloquin\config\data.dat". It is only read, anew at each call of an
/// operation that ciphers, so one file is enciphered under one key. Its contents are taken as text
/// of the ANSI code page, up to their first NUL. The MD5 hash of that text (RFC 1321) as 32
/// upper-case digits, reordered and fitted, gives the AES key and the chaining block. A key file
/// that is missing, empty or may not be opened leaves both zero; one that cannot be opened for want
/// of descriptors or memory, or cannot be read, throws std::runtime_error. One of more than 33
/// bytes, or one of 2 bytes or more that begins with a NUL, makes every operation, except on an
/// empty file, throw CInvalidArgException before it changes anything. Keys and plain bytes are
/// wiped.
///
/// The cipher. AES (FIPS 197) with a 256-bit key in CBC mode (NIST SP 800-38A). There is no padding
/// count, no salt and no check value: the last block is filled with zeros, equal plain bytes give
/// equal cipher bytes, and a wrong key or a damaged file gives meaningless bytes without an error.
///
/// An enciphered file is a sequence of chunks. Every chunk but the last holds 0x100000 bytes, the
/// last a multiple of 16; each is enciphered by itself. See docs/file-formats.md. A file whose
/// length is no multiple of 16 is damaged: it is deciphered as if zeros filled its last block.
///
/// A text ends at its first NUL, in every operation. What is no character, such as a lone
/// surrogate, is stored as U+FFFD.
///
/// Files are read and written chunk by chunk, with a call of the system for each, so that the
/// memory used does not grow with the file. Files are written in place
/// (docs/decisions/in-place-writing.md): what can fail without the file fails first, and so does a
/// disk that has no room for the new length.
///
/// Each file but the key file is locked while it is read or written, by itself (InputFile,
/// InPlaceWriter). A reader waits 0.2 s for a writer and then goes on without the lock. A writer
/// waits 1 s for readers and then goes on without it, too; it waits 10 s for writers and then fails
/// with EACCES. Whoever enciphers a large file for longer than 1 s may see what it changes.
///
/// Nothing here is logged or takes a named lock. The file operations give 0 for success and 1 for
/// failure. std::runtime_error also tells of a machine that does not offer AES.
class TQ_EXPORT CCrypto {
  CString m_strKeyFile;

 public:
  CCrypto();

  /// The C run-time errno value of the last file operation of the object that failed; 0 after
  /// construction. A success does not reset it.
  int m_nLastError = 0;

  /// The MD5 hash of a text as 32 upper-case digits; empty on failure and for an empty text. The
  /// text's bytes in the ANSI code page are hashed, but only as many of them as the text has
  /// characters. The text may be of any length.
  CString ComputeHash(const CString& text);

  /// Enciphers the input, filled with zeros up to a whole number of blocks of 16 bytes. The output
  /// is as long as that, and may be the input. Nothing beyond the input's length is looked at.
  void EncryptByTripleDesToByteArrayByte(const CByteArray& input, CByteArray& output);

  /// Deciphers the input, filled with zeros up to a whole number of blocks. The output is as long
  /// as that, and may be the input; nothing is stripped.
  void DecryptByTripleDESByte(const CByteArray& input, CByteArray& output);

  /// Enciphers the UTF-8 bytes of a text and a NUL as one run, whatever its length.
  void EncryptByTripleDesToByteArray(const CString& text, CByteArray& output);

  /// Deciphers one run and gives the text up to its first NUL.
  CString DecryptByTripleDESToByteArray(const CByteArray& input);

  /// The cipher bytes of a text, read as UTF-8. Cipher bytes are no UTF-8 text: this form loses
  /// what UTF-8 cannot hold and what stands behind a zero byte, so it does not carry every text.
  /// Nothing in the library stores it.
  CString EncryptByTripleDES(const CString& text);
  CString DecryptByTripleDES(CString cipher);

  /// Writes the UTF-8 form of a text and a NUL to an enciphered file. When the file cannot be
  /// opened, written or made as long as it must be: 1, with errno in m_nLastError; until the first
  /// chunk is written the old file is left as it was.
  int CryptingStringWriter(const CString& text, const CString& path);

  /// Appends the text of an enciphered file to the output. A file that is not there or cannot be
  /// read: 1, with errno in m_nLastError, and the output keeps what it held. An empty file: 0, and
  /// nothing is appended.
  ///
  /// The text ends at the first NUL of the whole file: what lies behind it, in later chunks too, is
  /// the rest of an older text that a writer did not come to cut off. A character that two chunks
  /// share comes back whole.
  int CryptingStringReader(const CString& path, CString& output);

  /// Enciphers a file. When the last chunk is shorter than 0x100000 bytes, one zero byte follows
  /// the data before the fill; an empty file stays empty.
  ///
  /// This and DecryptFileMake: a source that is not there or cannot be read, or a destination that
  /// cannot be opened, written or made as long as it must be, gives 1 with errno in m_nLastError.
  /// So does a destination that is the source, by whatever name (EINVAL): it would be destroyed if
  /// the process ended early. The source is taken as long as it is when it is opened: what is
  /// appended to it meanwhile is left out, and when it is cut, what is there counts. A destination
  /// that could not be completed does not appear under its name if it is new.
  int CryptFileMake(const CString& source, const CString& destination);

  /// Deciphers a file. The zero bytes behind the data stay in the destination, which is as long as
  /// the source.
  int DecryptFileMake(const CString& source, const CString& destination);

 private:
  friend class CryptoTestAccess;

  AesCbc MakeCipher(CipherDirection direction);
  int MakeFile(CipherDirection direction, const CString& source, const CString& destination);
  int FailWithErrno();

  void GetBytesKey(CByteArray& key);
  static void ResizeBytesArray(const CByteArray& source, CByteArray& target);
  static int GetBytes(unsigned code_page, const CString& text, CByteArray& bytes);
  static CString GetString(unsigned code_page, const CByteArray& bytes);
  static int GetMD5Hash(const unsigned char* data, unsigned long length, CByteArray& hash);
  static CString ByteArrayToString(const CByteArray& bytes);
  static int GetByteArraySize(int length);
};

}  // namespace vk::tq
