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
/// "\ORV-INC\Velkorandia\Tessaloquin\config\data.dat"; it is only read, anew at each call of a
/// byte-level operation, and its contents are taken as text of the ANSI code page. Its MD5 hash
/// (RFC 1321) as 32 upper-case digits, reordered and fitted, gives the AES key and the chaining
/// block. Without a key file both are zero. A key file of more than 33 bytes, or one of 2 bytes or
/// more that begins with a NUL, makes every operation throw CInvalidArgException before it changes
/// anything. Keys and plain bytes are wiped.
///
/// The cipher. AES (FIPS 197) with a 256-bit key in CBC mode (NIST SP 800-38A). There is no padding
/// count, no salt and no check value: the last block is filled with zeros, equal plain bytes give
/// equal cipher bytes, and a wrong key or a damaged file gives meaningless bytes without an error.
///
/// An enciphered file is a sequence of chunks. Every chunk but the last holds 0x100000 bytes, the
/// last a multiple of 16; each is enciphered by itself. See docs/file-formats.md.
///
/// Nothing here is logged or takes a lock. The file operations give 0 for success and 1 for
/// failure.
class TQ_EXPORT CCrypto {
 public:
  CCrypto();

  /// The C run-time errno value of the last file operation of the object that failed; 0 after
  /// construction. A success does not reset it.
  int m_nLastError = 0;

  /// The MD5 hash of a text as 32 upper-case digits; empty on failure and for an empty text. The
  /// text's bytes in the ANSI code page are hashed, but only as many of them as the text has
  /// characters.
  CString ComputeHash(const CString& text);

  /// Enciphers the input, filled with zeros up to a whole number of blocks of 16 bytes. The output
  /// is as long.
  void EncryptByTripleDesToByteArrayByte(const CByteArray& input, CByteArray& output);

  /// Deciphers the input, filled with zeros up to a whole number of blocks. The output is as long;
  /// nothing is stripped.
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

  /// Writes the UTF-8 form of a text and a NUL to an enciphered file, in place. The text ends at
  /// its first NUL. When the file cannot be opened, written or made as long as it must be: 1, with
  /// errno in m_nLastError; before the first byte has been written the old file is left as it was.
  int CryptingStringWriter(const CString& text, const CString& path);

  /// Appends the text of an enciphered file to the output. A file that is not there or cannot be
  /// read: 1, with errno in m_nLastError. An empty file: 0, and nothing is appended.
  int CryptingStringReader(const CString& path, CString& output);

  /// Enciphers a file. When the last chunk is shorter than 0x100000 bytes, one zero byte follows
  /// the data before the fill. The memory used is two chunks, whatever the size.
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

  CString m_strKeyFile;
};

}  // namespace vk::tq
