/// The FTP client of the library.
#pragma once

#include <cstdint>

#include "platform/ftp_session.h"
#include "platform/types.h"

namespace vk::tq {

/// One object is one connection to one server (RFC 959): control port 21, passive, every transfer
/// binary. The caller connects, changes the remote directory if need be, moves any number of files,
/// and disconnects. A file has the same name on both sides: that in a local directory, and that in
/// the server's current directory. Remote names go out in the ANSI code page.
///
/// Results are 1 for success and 0 for failure; nothing is thrown. A transfer or a change of
/// directory that fails closes the connection, so that IsConnect gives 0; the object can be
/// connected again. Repeating a failed connection is the caller's business. On an object without a
/// connection every transfer fails. An object belongs to one thread at a time and takes no mutex.
/// Every wait is bounded by the time-out of FtpConnect, which counts anew for each reply and for each
/// piece of a file that moves. While FtpConnect resolves the server's name, a thread of libcurl's
/// does that, and one that meets no answer may outlive the call by the resolver's own time-out.
///
/// A file below 256 KiB is read before anything of it is sent. A longer one is locked until its last
/// piece has been read: a writer of this library waits for that 1 s at most, and then a mixture may
/// go out.
///
/// A line with a code carries the last error, whose values platform/ftp_session.h tells; 12003
/// stands for a refusal by the server. Neither user nor password is logged; a reply in which the
/// password stands is logged by its code alone.
class TQ_EXPORT CFtp {
 public:
  CFtp() = default;
  /// Copies both handles as they are. Both objects then stand for one connection: what one of them
  /// closes, its destructor included, is closed for the other as well, whose operations fail with 6
  /// from then on.
  CFtp(const CFtp&) = default;
  /// The same. A connection that the assigned object had is not closed.
  CFtp& operator=(const CFtp&) = default;
  /// FtpDisConnect.
  ~CFtp();

  /// Connects and logs in, in place of an earlier connection. `timeout` bounds each wait, in
  /// milliseconds: 0 is refused (87), 0xFFFFFFFF and more stand for no limit. An empty user is
  /// "anonymous".
  /// Lines at level 3: 130020 when the time-outs are set, and on failure, with a code, 130001,
  /// 130002 or 130003; SetFtpOption has one more. At level 2: 130021 before and 130022 after
  /// connecting, whatever came of it.
  int FtpConnect(const wchar_t* server, const wchar_t* user, const wchar_t* password,
                 unsigned long timeout);

  /// Closes what is open, if anything. 0 only when the internet handle cannot be closed; the handle
  /// then stays. Lines at level 3: 130012 and 130013, with a code, for what cannot be closed,
  /// 130014 at the end of a success.
  int FtpDisConnect();

  /// 1 when there is a connection, whether or not the server still answers.
  int IsConnect() const { return m_hConnect != kNoFtpHandle ? 1 : 0; }

  /// Silent on success; on failure 130008 at level 3, with a code.
  int FtpChangeCurrentDirectory(const wchar_t* directory);

  /// Fetches a file. An existing local file is overwritten by a complete download only. Lines at
  /// level 3: 130005, then 130007 or, with a code, 130006.
  int FtpGet(const wchar_t* local_directory, const wchar_t* file_name);

  /// Stores a file. A name that ends in ".xml", in any case, travels with ".xm_" and then gets its
  /// own name by a rename, so that whoever sees the name on the server sees a whole file; the
  /// rename is tried 11 times at most, 25 ms apart, as long as the server refuses it (12003). After
  /// a failure the file under the name that it travelled by is deleted from the server, if that
  /// still answers within the time-out.
  ///
  /// Lines: 130009 at level 3 for the start, at level 2 for each step, at level 5 when the last
  /// rename was refused; 130011 at level 3 when all is done; on failure 130010 at level 3, with a
  /// code.
  int FtpPut(const wchar_t* local_directory, const wchar_t* file_name);

  /// Stores a file under its own name at once and compares the sizes by FtpSizeVerify, until they
  /// are equal or `most_uploads` uploads have been made; 0 counts as 1. Sizes that stay unequal
  /// leave the connection open. Lines at level 3: 130010, with a code, when an upload failed, else
  /// 130011 with the number of failed checks and `most_uploads`. An exception, for want of memory,
  /// leaves 130011 at level 5, with a code, in front of that.
  int FtpPutAndVerify(const wchar_t* local_directory, const wchar_t* file_name,
                      unsigned char most_uploads);

  /// Compares the size of a local file with that of the remote file itself (SIZE, RFC 3659). The
  /// connection stays open. Lines: 13130050 at level 4 when they differ; at level 5, with a code,
  /// 130030 for the local or 130040 for the remote file, and then 13130060.
  int FtpSizeVerify(const CString& local_path, const wchar_t* remote_name);

  /// Compares an expected size in bytes with the one in the server's listing of its directory. The
  /// first argument is not read. The connection stays open. Lines: 13130065 at level 2 at the
  /// start; at level 3 13130050 when the sizes differ, and with a code 130040 when there is no
  /// listed size: the server's reply and its code, or else the last error. 13130060 at level 2 for an
  /// exception, for want of memory. 130045, at level 3 with a code, when the search cannot be closed.
  int FtpSizeVerifyFindFirst(const wchar_t* unused, const wchar_t* remote_name,
                             std::uint64_t expected_size);

  /// A directory and a file name as one path, with one backslash between them. An empty directory
  /// gives the file name alone.
  static CString MakeLocalPath(const wchar_t* directory, const wchar_t* file_name);

 private:
  int SetFtpOption(FtpHandle handle, unsigned long value);
  void CloseBoth();
  int FailTransfer(int number, const wchar_t* function, int line, const wchar_t* text);

  FtpHandle m_hInternet = kNoFtpHandle;
  FtpHandle m_hConnect = kNoFtpHandle;
};

}  // namespace vk::tq
