/// The operating settings of one client PC.
#pragma once

#include "platform/types.h"

namespace vk::tq {

/// A value object: a program constructs one, calls Read, and reads the public members, each of
/// which bears the name of its key. An object belongs to one thread at a time.
///
/// `Client.ini` is the INI file `GetSpecialFolderPath(35)` +
/// "\ORV-INC\Velkorandia\Tessaloquin\config\Client.ini". Its keys lie in the section "Setting",
/// PrinterInfoCycle alone in the section "Thread". `config.ini`, which the print processor reads,
/// is "\PrintProcessor\config.ini" behind the same folder. No operation takes a mutex;
/// two programs that write different keys of one file both succeed, two that write one key race to
/// the last write. Values, ranges and what a bad value does stand in docs/settings.md. A
/// text is written on one line: a line break in it becomes a blank, and a NUL ends it.
class TQ_EXPORT CClientSetting : public CObject {
 public:
  /// Which operating systems the size of an uploaded file is checked on: values of FtpSizeCheck.
  static constexpr int FTPSIZECHECK_NOCHECK = 0;
  static constexpr int FTPSIZECHECK_WIN7ONLY = 1;
  static constexpr int FTPSIZECHECK_WIN8ONLY = 2;
  static constexpr int FTPSIZECHECK_ALLCHECK = 3;

  /// The members hold the values below. They are not everywhere those that Read falls back on.
  CClientSetting() = default;
  CClientSetting(const CClientSetting&) = default;
  CClientSetting& operator=(const CClientSetting&) = default;
  /// Wipes the FTP account.
  ~CClientSetting() override;

  bool SharedPC = true;                   ///< the PC is shared by several users
  int ServiceSocket = 50514;              ///< port of the service socket server
  CString P1;                             ///< primary printer server address
  CString P1Secondary;                    ///< secondary printer server address
  CString P2;                             ///< FTP user, as plain text
  CString P3;                             ///< FTP password, as plain text
  unsigned char P4 = 3;                   ///< FTP retry count
  CString NemiInfoDir;                    ///< print information files of Nemi jobs
  CString NemiManageDir;                  ///< management files of Nemi jobs
  CString LomuInfoDir;                    ///< print information files of Lomu jobs
  CString LomuManageDir;                  ///< management files of Lomu jobs
  CString JobTransDir;                    ///< job transfer directory
  CString EmgWorkDir;                     ///< emergency print work directory
  CString EmgTransDir;                    ///< emergency print transfer directory
  CString EMSDir;                         ///< directory of the delivered files; ReadEMSDir fills it
  CString LomuServerDir;                  ///< destination of Lomu jobs on the server
  CString EmgServerDir;                   ///< destination of emergency print files on the server
  CString ServiceDataDir;                 ///< user information read by the service
  int SharedPrinterTransTimeout = 0;      ///< send time-out towards the shared printer server
  int SharedPrinterTransRetry = 3;        ///< send retries towards the shared printer server
  bool SharedPrinterUserType = false;     ///< which user the shared printer is told of
  bool SharedPrinter = true;              ///< the shared printer function is in use
  int SocketBackLog = 20;                 ///< listen backlog of the service socket server
  bool SelectIPorHost = false;            ///< switch between IP address and PC name
  int ShardJobDelete = 120;               ///< time after which a shared-printer job is deleted
  CString ClientIPAddress;                ///< the address of this PC
  int ClientIPAddressCycle = 30;          ///< cycle of the client IP address watch
  CString CertNemiInfoDir;                ///< Nemi print information during authentication
  CString CertLomuInfoDir;                ///< Lomu print information during authentication
  int AuthorityMethod = 0;                ///< printer authority method
  int DevCapaIntevalTime = 120;           ///< interval timer of the device capability fetch
  int ToastPrintingDisplayTime = 10;      ///< toast display time while printing
  int ToastCanceledDisplayTime = 10;      ///< toast display time otherwise
  int SharedTimeout = 10;                 ///< seconds for which a shared PC keeps the user data
  int CheckSharedPrinterLoopSpan = 1000;  ///< interval of the shared printer check loop
  int CheckSharedPrinterNewJobSpan = 0;   ///< interval per printer of the shared printer check
  CString PrinterInfoWorkDir;             ///< printer information temporary directory
  CString PrinterInfoTransDir;            ///< printer information transfer directory
  CString PrinterInfoServerDir;           ///< destination of printer information on the server
  int PrinterInfoFtpRetry = 6;            ///< FTP connect and send retries of printer information
  /// FTP connect and send retry interval of printer information
  int PrinterInfoFtpRetryInterval = 10000;
  /// Printer information thread interval. It has no value of its own before Read; 0 stands here so
  /// that it is a defined one.
  int PrinterInfoCycle = 0;
  int StandByIdleCount = 15;                 ///< wait count of the management file watch
  int FileLockRetry = 1;                     ///< retries after a failed file lock
  int SharedJobCancelInterval = 10000;       ///< interval of the shared printer cancel watch
  int FtpSizeCheck = FTPSIZECHECK_WIN8ONLY;  ///< FTP size check class
  int FtpConnectRetryInterval = 1000;        ///< FTP connect retry interval
  int ValidPrimaryAP = 1;                    ///< carried for the programs
  int ValidPrimaryPS = 1;                    ///< carried for the programs
  int ServerAutoSetting = 1;                 ///< server addresses are fetched automatically
  int SharedPCInputUserIDArch = 0;           ///< carried for the programs
  CString SharedPCCardSystemCode;            ///< card system code, up to 4 hexadecimal digits
  int PrintJobInfoDispUserName = 1;          ///< user name in the print information screen
  CString NupSetting = L"1,2,4,6,9,16";      ///< N-up values; not read
  int TonerSaveDisp = 1;                     ///< show toner save; not read
  int FontImageDisp = 1;                     ///< show printing of fonts as images; not read
  int EnableUpdateDevmode = 1;               ///< the Lomu driver's devmode is updated
  int FQDNTryCount = 3;                      ///< attempts to get the printer server FQDN
  int FQDNExpirationMinute = 60;             ///< validity of that name, in minutes
  int UseTray1 = 0;                          ///< 0 off, 3 on; not read
  CString NameTray1 = L"トレイ1";            ///< display name; not read
  int UseTray2 = 0;                          ///< 0 off, 4 on; not read
  CString NameTray2 = L"トレイ2";            ///< display name; not read
  int UseTray3 = 0;                          ///< 0 off, 5 on; not read
  CString NameTray3 = L"トレイ3";            ///< display name; not read

  // ---- Client.ini ----

  /// Loads and validates 55 keys; `mode` 1 reads the job-transfer group (LomuInfoDir,
  /// CertLomuInfoDir, LomuManageDir, JobTransDir, LomuServerDir) as well, any other leaves it
  /// alone. 0 when there was at least one failure, else 1. The file is read once; one that is
  /// missing or cannot be read is like an empty one. Nothing is thrown for a bad value or key file.
  ///
  /// Every key is visited whatever happened before it, and local directories that are missing are
  /// made. A warning is logged (level 3, PrintJobInfoDispUserName 2) and the default used. A
  /// failure is logged at level 4, goes to the event log and makes the result 0; of the card system
  /// code it leaves no event, and a directory of the job-transfer group that cannot be made does
  /// not change the result. All lines have the function "CClientSetting::Read".
  ///
  /// Values are seen up to 1023 characters. Blanks at their ends do not count, but of a flag the
  /// first character decides alone. P2 and P3 stand in the file as hexadecimal text of what
  /// `CCrypto::EncryptByTripleDesToByteArray` gives, and their plain texts are trimmed; when no key
  /// can be built from the key file they count as blank. A second Read overwrites all but SharedPC,
  /// P1, P2, P3, P4 and ClientIPAddress, which keep their earlier value when the key is missing, or
  /// no number (P4), or neither 0 nor 1 (SharedPC). A ClientIPAddress of blanks alone counts as
  /// missing.
  int Read(int mode);

  /// Writes the address of this PC to ClientIPAddress. Always 1.
  int WriteClientIP(CString address);

  /// P1, P1Secondary and ServerAutoSetting: 1, or 0 with the last error set when the file cannot be
  /// written. Nothing is logged.
  int WritePrimPSIpAddr(CString address);
  int WriteScndPSIpAddr(CString address);
  int WriteSvIpGetAutoFlg(CString flag);

  /// The value as it stands in the file, at most 1023 characters; empty when it is missing. The
  /// secondary address does not fall back on the primary one.
  CString ReadPrimPSIpAddr();
  CString ReadScndPSIpAddr();

  /// ServerAutoSetting as an integer; 0 when it is missing.
  int ReadSvIpGetAutoFlg();

  /// AddIconRetry, the retry count for the task tray icon. When it is no number: 100, and a line at
  /// level 3, number 120200630, "CClientSetting::ReadAddIconRetry".
  int ReadAddIconRetry();

  /// Reads EMSDir, the directory of the delivered files, into the member and the argument, and
  /// makes the directory when it is missing. On failure 0: both hold a built-in path, and one text
  /// goes to the log (level 4, 120200640, 120200650 or 120200660, "CClientSetting::ReadEMSDir") and
  /// to the event log (0xC0004000).
  int ReadEMSDir(CString& directory);

  // ---- config.ini ----
  //
  // Each writes its keys whether they have changed or not, in one go, between the lines "START" and
  // "END" at level 0. A bad argument is replaced by its default, and a line at level 3 says so;
  // what is written goes to the log at level 3. The result of the write itself is not looked at: a
  // missing folder still gives 1. 0 after an exception, which leaves a line at level 5 with the
  // last error.

  /// Use value (0, or 3, 4, 5 for tray 1, 2, 3) and display name of each tray, all six in one
  /// write.
  int WriteTrayData(int use1, CString name1, int use2, CString name2, int use3, CString name3);

  /// The N-up values, without a test.
  int WriteNupSetting(CString text);

  int WriteTonerSaveDisp(int value);         ///< 0 or 1, else 0
  int WriteFontImageDisp(int value);         ///< 0 or 1, else 0
  int WriteSpoolingJobSkipTimer(int value);  ///< 0 to 9999, else 180
  int WriteWorkaroundRemnantJob(int value);  ///< 0 to 9999, else 0

 private:
  class Reader;

  /// Parses a decimal setting without its white space. The out value is never negative and
  /// saturates at 2147483647. For an empty text and one with anything but ASCII digits it is the
  /// default, and the result 0.
  static int CheckNumeric(const wchar_t* text, int default_value, int* value);

  /// Takes one backslash off the end of a local directory path and makes sure that the directory is
  /// there. One that is made (one level only) is opened to "users" and "power users", with a line
  /// at level 3, number 120200610. 0 when it cannot be made, with a line at level 5, 120200600.
  /// Both carry the last error. An empty path gives 1.
  static int CheckExistDirectry(CString& path);

  /// Whether there is a directory of that name. When there is nothing, a line at level 5, number
  /// 120200620, with the last error (2, or 3 when a parent is missing).
  static int IsDirectry(const wchar_t* path);

  /// Appends one byte for each two characters of a text, the first being the high half. A character
  /// that is no hexadecimal digit counts as 0, and so does the missing one of an odd length.
  static void AsciiHexToByteArray(const wchar_t* text, CByteArray& bytes);
};

}  // namespace vk::tq
