#include "transport/ftp.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <utility>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/service_table.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

constexpr std::wstring_view kAgent = L"Velkorandia Tessaloquin!";
constexpr std::wstring_view kFinalExtension = L".xml";
constexpr std::wstring_view kTemporaryExtension = L".xm_";
constexpr std::uint32_t kPause = 25;
constexpr int kRenameRepeats = 10;
constexpr std::size_t kResponseBuffer = 261;

// The time-outs, in the order in which they are set.
struct TimeoutOption {
  FtpTimeout option;
  int number;  // logged when it is refused
};
constexpr std::array<TimeoutOption, 5> kTimeoutOptions = {{
    {FtpTimeout::kConnect, 130015},
    {FtpTimeout::kControlReceive, 130016},
    {FtpTimeout::kControlSend, 130017},
    {FtpTimeout::kDataSend, 130018},
    {FtpTimeout::kDataReceive, 130019},
}};

constexpr const wchar_t* kFtpPut = L"CFtp::FtpPut";
constexpr const wchar_t* kUploadFailed = L"アップロードに失敗しました。";
constexpr const wchar_t* kOptionFailed = L"FTP通信オプション設定でエラーが発生しました。";
constexpr const wchar_t* kWrongSize =
    L"FTP転送ファイルのサイズが異常です。file[%s] size[%llu]byte->[%llu]byte";

std::wstring_view TextOf(const wchar_t* text) { return text != nullptr ? text : L""; }

// The text of a line; empty when there is no memory for it.
template <class... Arguments>
CString LineText(const wchar_t* format, const Arguments&... arguments) {
  try {
    return Format(format, arguments...);
  } catch (...) {
    return {};
  }
}

template <class... Arguments>
void Log(int level, int number, const wchar_t* function, int line, const wchar_t* format,
         const Arguments&... arguments) noexcept {
  Log4cxxMgr::LogOutDetail(level, number, function, line, LineText(format, arguments...));
}

// A line with the last error as its code.
template <class... Arguments>
void LogError(int level, int number, const wchar_t* function, int line, const wchar_t* format,
              const Arguments&... arguments) noexcept {
  const auto code = static_cast<int>(GetLastError());
  Log4cxxMgr::LogOutDetail(level, number, function, line, code, LineText(format, arguments...));
}

void Pause() { CurrentClock().Sleep(kPause); }

// From the last point on.
std::wstring_view ExtensionOf(std::wstring_view name) {
  const std::size_t point = name.rfind(L'.');
  return point == std::wstring_view::npos ? std::wstring_view() : name.substr(point);
}

// Closes a handle if there is one. False when it cannot be closed.
bool Close(FtpHandle handle) { return handle == kNoFtpHandle || CloseFtpHandle(handle); }

// In a handler: lets the last error tell what was thrown.
void ExplainException() noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    SetLastError(kErrorNotEnoughMemory);
  } catch (...) {
    SetLastError(kErrorGenFailure);
  }
}

// Runs an operation; what is thrown in it counts as its failure.
template <class Work>
bool Succeeds(const Work& work) noexcept {
  try {
    return work();
  } catch (...) {
    ExplainException();
    return false;
  }
}

// The file is closed again before anything else is done with it.
std::optional<std::uint64_t> LocalSize(const CString& path) {
  InputFile file;
  const std::optional<FileStatus> status = file.Open(path) ? file.Status() : std::nullopt;
  if (!status) return {};
  return status->size;
}

// One upload: the local path, the name that the file travels by, and its own.
struct Upload {
  CString local;
  CString upload_name;
  CString final_name;

  Upload(const wchar_t* directory, const wchar_t* file_name)
      : local(CFtp::MakeLocalPath(directory, file_name)),
        upload_name(TextOf(file_name)),
        final_name(upload_name) {
    if (!EqualsNoCase(ExtensionOf(final_name), kFinalExtension)) return;
    upload_name.replace(upload_name.size() - kFinalExtension.size(), kFinalExtension.size(),
                        kTemporaryExtension);
  }

  bool is_renamed() const { return upload_name != final_name; }
};

// Gives an upload its own name.
bool Rename(FtpHandle connection, const Upload& file) {
  const auto log = [&](int level, int line, const wchar_t* format) {
    Log(level, 130009, kFtpPut, line, format, file.upload_name, file.final_name);
  };
  Pause();
  log(2, __LINE__, L"リモートファイルをrenameします。[old:%s],[new:%s]");
  for (int count = 0; !RenameFtpFile(connection, file.upload_name, file.final_name);) {
    if (GetLastError() != kErrorInternetExtendedError) return false;
    if (++count > kRenameRepeats) {
      log(5, __LINE__, L"リモートファイルをrenameできませんでした。[old:%s],[new:%s]");
      return false;
    }
    Pause();
    log(2, __LINE__, L"リモートファイルを再度renameします。[old:%s],[new:%s]");
  }
  return true;
}

bool Send(FtpHandle connection, const Upload& file) {
  Log(2, 130009, kFtpPut, __LINE__, L"ファイルをUploadします。[local:%s],[remote:%s]", file.local,
      file.upload_name);
  if (!PutFtpFile(connection, file.local, file.upload_name)) return false;
  return !file.is_renamed() || Rename(connection, file);
}

}  // namespace

CFtp::~CFtp() { FtpDisConnect(); }

CString CFtp::MakeLocalPath(const wchar_t* directory, const wchar_t* file_name) {
  CString path = InternalPath(TextOf(directory));
  if (!path.empty() && path.back() != L'\\') path += L'\\';
  return path.append(TextOf(file_name));
}

int CFtp::FtpConnect(const wchar_t* server, const wchar_t* user, const wchar_t* password,
                     unsigned long timeout) {
  constexpr const wchar_t* kFunction = L"CFtp::FtpConnect";
  Close(std::exchange(m_hInternet, kNoFtpHandle));
  m_hInternet = OpenFtp(kAgent);
  if (m_hInternet == kNoFtpHandle) {
    LogError(3, 130001, kFunction, __LINE__, L"インターネットサービスオープンエラー発生");
    return 0;
  }
  if (SetFtpOption(m_hInternet, timeout) != 1) {
    LogError(3, 130002, kFunction, __LINE__, kOptionFailed);
    Close(std::exchange(m_hInternet, kNoFtpHandle));
    return 0;
  }
  Close(std::exchange(m_hConnect, kNoFtpHandle));
  Log(2, 130021, kFunction, __LINE__, L"プリンタサーバ: FTP接続開始");
  m_hConnect = ConnectFtp(m_hInternet, TextOf(server), ServicePort(Service::kFtpControl),
                          TextOf(user), TextOf(password));
  Log(2, 130022, kFunction, __LINE__, L"プリンタサーバ: FTP接続完了");
  if (m_hConnect != kNoFtpHandle) return 1;
  LogError(3, 130003, kFunction, __LINE__, L"FTPサーバ接続エラー発生");
  Close(std::exchange(m_hInternet, kNoFtpHandle));
  return 0;
}

int CFtp::SetFtpOption(FtpHandle handle, unsigned long value) {
  constexpr const wchar_t* kFunction = L"CFtp::SetFtpOption";
  const auto timeout = static_cast<std::uint32_t>(std::min<unsigned long>(value, kNoFtpTimeout));
  for (const auto& [option, number] : kTimeoutOptions) {
    if (SetFtpTimeout(handle, option, timeout)) continue;
    LogError(3, number, kFunction, __LINE__, kOptionFailed);
    return 0;
  }
  Log(3, 130020, kFunction, __LINE__, L"FTP各種オプションの設定完了");
  return 1;
}

int CFtp::FtpDisConnect() {
  constexpr const wchar_t* kFunction = L"CFtp::FtpDisConnect";
  if (!Close(m_hConnect)) {
    LogError(3, 130012, kFunction, __LINE__, L"FTPセッションクローズエラーが発生しました。");
  }
  m_hConnect = kNoFtpHandle;
  if (!Close(m_hInternet)) {
    LogError(3, 130013, kFunction, __LINE__, L"インターネットサービス切断エラーが発生しました。");
    return 0;
  }
  m_hInternet = kNoFtpHandle;
  Log(3, 130014, kFunction, __LINE__, L"FTPセッションを開放しました。");
  return 1;
}

void CFtp::CloseBoth() {
  Close(std::exchange(m_hConnect, kNoFtpHandle));
  Close(std::exchange(m_hInternet, kNoFtpHandle));
}

int CFtp::FailTransfer(int number, const wchar_t* function, int line, const wchar_t* text) {
  LogError(3, number, function, line, text);
  CloseBoth();
  return 0;
}

int CFtp::FtpChangeCurrentDirectory(const wchar_t* directory) {
  if (SetFtpDirectory(m_hConnect, TextOf(directory))) return 1;
  return FailTransfer(130008, L"CFtp::FtpChangeCurrentDirectory", __LINE__,
                      L"リモートのカレントディレクトリ設定エラーが発生しました。");
}

int CFtp::FtpGet(const wchar_t* local_directory, const wchar_t* file_name) {
  constexpr const wchar_t* kFunction = L"CFtp::FtpGet";
  Log(3, 130005, kFunction, __LINE__, L"FTPサーバに接続しました。");
  const bool is_here = Succeeds([&] {
    return GetFtpFile(m_hConnect, TextOf(file_name), MakeLocalPath(local_directory, file_name));
  });
  if (!is_here) return FailTransfer(130006, kFunction, __LINE__, L"ダウンロードに失敗しました。");
  Log(3, 130007, kFunction, __LINE__, L"ダウンロードが完了しました。");
  return 1;
}

int CFtp::FtpPut(const wchar_t* local_directory, const wchar_t* file_name) {
  Log(3, 130009, kFtpPut, __LINE__, L"FTPサーバに接続しました。");
  std::optional<Upload> file;
  const bool is_there = Succeeds([&] {
    file.emplace(local_directory, file_name);
    if (!Send(m_hConnect, *file)) return false;
    Log(3, 130011, kFtpPut, __LINE__, L"アップロードが完了しました。[%s]", file->final_name);
    return true;
  });
  if (is_there) {
    Pause();
    return 1;
  }
  LogError(3, 130010, kFtpPut, __LINE__, kUploadFailed);
  Pause();
  if (file) DeleteFtpFile(m_hConnect, file->upload_name);
  CloseBoth();
  return 0;
}

int CFtp::FtpPutAndVerify(const wchar_t* local_directory, const wchar_t* file_name,
                          unsigned char most_uploads) {
  constexpr const wchar_t* kFunction = L"CFtp::FtpPutAndVerify";
  unsigned char failed_checks = 0;
  int result = 0;
  try {
    const CString local_path = MakeLocalPath(local_directory, file_name);
    do {
      if (!PutFtpFile(m_hConnect, local_path, TextOf(file_name))) {
        return FailTransfer(130010, kFunction, __LINE__, kUploadFailed);
      }
      result = FtpSizeVerify(local_path, file_name);
    } while (result == 0 && ++failed_checks < most_uploads);
  } catch (...) {
    ExplainException();
    LogError(5, 130011, kFunction, __LINE__, L"アップロードで例外が発生しました。");
    result = 0;
  }
  const wchar_t* format = result != 0 ? L"アップロードが完了しました。リトライ回数: [%d]/[%d]"
                                      : L"アップロードが失敗しました。リトライ回数: [%d]/[%d]";
  Log(3, 130011, kFunction, __LINE__, format, failed_checks, most_uploads);
  return result;
}

int CFtp::FtpSizeVerify(const CString& local_path, const wchar_t* remote_name) {
  constexpr const wchar_t* kFunction = L"CFtp::FtpSizeVerify";
  bool is_equal = false;
  SetLastError(kErrorSuccess);
  const bool is_compared = Succeeds([&] {
    const std::optional<std::uint64_t> local = LocalSize(local_path);
    if (!local) {
      LogError(5, 130030, kFunction, __LINE__, L"ファイルハンドルの取得に失敗しました。[%s]",
               local_path);
      return false;
    }
    const std::optional<std::uint64_t> remote = FtpFileSize(m_hConnect, TextOf(remote_name));
    if (!remote) {
      LogError(5, 130040, kFunction, __LINE__, L"転送先ファイルハンドルの取得に失敗しました。[%s]",
               TextOf(remote_name));
      return false;
    }
    is_equal = *remote == *local;
    if (!is_equal) Log(4, 13130050, kFunction, __LINE__, kWrongSize, local_path, *local, *remote);
    return true;
  });
  if (is_compared) return is_equal ? 1 : 0;
  LogError(5, 13130060, kFunction, __LINE__, L"サイズチェックで例外が発生しました。 [%s]",
           local_path);
  return 0;
}

namespace {

constexpr const wchar_t* kFindFirst = L"CFtp::FtpSizeVerifyFindFirst";

// Why the listing of a name has failed: by the server's own word, if it said something.
void LogSearchFailure(std::wstring_view remote_name) {
  std::array<char, kResponseBuffer> text{};
  ErrorCode code = 0;
  CString message;
  if (LastFtpResponse(code, text) && code != 0) {
    message = Format(L"転送先ファイル情報の取得に失敗しました。ファイル[%s], エラー[%d(%s)]",
                     remote_name, code, CUtil::ConvertToUnicode(0, text.data()));
  } else {
    code = GetLastError();
    message = Format(
        L"転送先ファイル情報、およびエラー情報の取得に失敗しました。ファイル[%s], エラー[%d]",
        remote_name, code);
  }
  Log4cxxMgr::LogOutDetail(3, 130040, kFindFirst, __LINE__, static_cast<int>(code), message);
}

bool IsListedSize(std::wstring_view remote_name, std::uint64_t expected, std::uint64_t listed) {
  if (listed == expected) return true;
  Log(3, 13130050, kFindFirst, __LINE__, kWrongSize, remote_name, expected, listed);
  return false;
}

}  // namespace

int CFtp::FtpSizeVerifyFindFirst(const wchar_t* /*unused*/, const wchar_t* remote_name,
                                 std::uint64_t expected_size) {
  const std::wstring_view name = TextOf(remote_name);
  Log(2, 13130065, kFindFirst, __LINE__, L"FTP転送ファイルのサイズチェックを行います。");
  FtpHandle search = kNoFtpHandle;
  bool is_equal = false;
  try {
    std::uint64_t listed_size = 0;
    search = FindFtpFile(m_hConnect, name, listed_size);
    if (search == kNoFtpHandle) {
      LogSearchFailure(name);
    } else {
      is_equal = IsListedSize(name, expected_size, listed_size);
    }
  } catch (...) {
    ExplainException();
    Log(2, 13130060, kFindFirst, __LINE__,
        L"サイズチェックで例外が発生しました。 file[%s] code[%d]", name, GetLastError());
  }
  if (!Close(search)) {
    LogError(3, 130045, kFindFirst, __LINE__,
             L"インターネットサービス切断エラーが発生しました。 エラー[%d]", GetLastError());
  }
  return is_equal ? 1 : 0;
}

}  // namespace vk::tq
