#include "transport/shared_printer_communication.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/tcp_socket.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr unsigned long kConnectFailed = 101;
constexpr std::size_t kHostSize = 256;  // with its terminator
constexpr std::size_t kHeaderSize = 8;  // command and length
constexpr std::size_t kNameSize = 26;
// A print information file has some kilobytes. What is this large is none, and a frame is made in
// memory: a file that only says that it is large must not take all of it.
constexpr std::uint64_t kLargestFile = 256u << 20;
constexpr int kStatusAnswerSize = 5;
constexpr char kRefused = '1';
constexpr int kTimeAnswerSize = 1024;
constexpr int kServerTimeCorrection = 32400;  // seconds
constexpr std::uint32_t kLongest = std::numeric_limits<std::uint32_t>::max();

std::atomic<microseconds> status_wait = microseconds(5'000'000);
std::atomic<microseconds> data_wait = microseconds(CSharedPrinterCommunication::RECEIVE_TIMEOUT);

void PutHeader(std::string& frame, std::string_view command, std::uint32_t length) {
  frame.replace(0, command.size(), command);
  for (std::size_t i = 0; i < 4; ++i) {
    frame[command.size() + i] = static_cast<char>(length >> (24 - 8 * i) & 0xFF);
  }
}

std::uint32_t LengthOf(const char* header) {
  std::uint32_t length = 0;
  for (std::size_t i = 4; i < kHeaderSize; ++i) {
    length = length << 8 | static_cast<unsigned char>(header[i]);
  }
  return length;
}

// The name that a file goes out under, in the ANSI code page.
std::optional<std::string> NameOnTheLine(CString path) {
  CUtil::GetFileName(path);
  ReplaceAll(path, L".xml", L"");
  return EncodeText(kCodePageAnsi, path);
}

// CS01, or nothing when the file cannot be read or its name cannot be converted.
std::optional<std::string> MakeFileFrame(const CString& path) {
  InputFile file;
  if (!file.Open(path)) return {};
  const std::optional<FileStatus> status = file.Status();
  if (!status || status->size > kLargestFile) return {};
  const std::optional<std::string> name = NameOnTheLine(path);
  if (!name) return {};
  std::string frame(kHeaderSize + kNameSize + static_cast<std::size_t>(status->size), '\0');
  char* content = frame.data() + kHeaderSize + kNameSize;
  const std::optional<std::size_t> size =
      file.Read(content, static_cast<std::size_t>(status->size));
  if (!size) return {};
  frame.resize(kHeaderSize + kNameSize + *size);
  PutHeader(frame, "CS01", static_cast<std::uint32_t>(kNameSize + *size));
  name->copy(frame.data() + kHeaderSize, kNameSize);
  return frame;
}

// CS06, or nothing when the text cannot be converted or announced.
std::optional<std::string> MakePrintOutFrame(const CString& job_user, const CString& job_id,
                                             const CString& client_name) {
  const std::optional<std::string> text =
      EncodeText(kCodePageAnsi,
                 Format(L"<Velkorandia><QTL><JobUser>%s</JobUser><JobAccessKey>%s</JobAccessKey>"
                        L"<JobId>%s</JobId><ClientName>%s</ClientName><PrintMode>%s</PrintMode>"
                        L"</QTL></Velkorandia>",
                        job_user, L"", job_id, client_name, L"OUTPUT"));
  if (!text || text->size() > kLongest / 2) return {};
  std::string frame(kHeaderSize + 2 * text->size(), '\0');
  PutHeader(frame, "CS06", static_cast<std::uint32_t>(2 * text->size()));
  frame.replace(kHeaderSize, text->size(), *text);
  return frame;
}

// The server looks at no byte behind the header of CS02, although its length says 1.
std::string MakeTimeFrame() {
  std::string frame(kHeaderSize, '\0');
  PutHeader(frame, "CS02", 1);
  return frame;
}

// Takes a decimal number off the front of a text: white space, a sign, digits.
std::optional<int> TakeNumber(std::wstring_view& rest) {
  rest = TrimView(rest);
  const bool is_negative = rest.starts_with(L'-');
  if (is_negative || rest.starts_with(L'+')) rest.remove_prefix(1);
  const std::size_t digits = std::min(rest.find_first_not_of(L"0123456789"), rest.size());
  if (digits == 0) return {};
  const int number = ParseInt(rest.substr(0, digits));
  rest.remove_prefix(digits);
  return is_negative ? -number : number;
}

struct TimeField {
  int lowest;
  int highest;
  wchar_t end;  // what stands behind it; a blank stands for any white space, or none
};

constexpr TimeField kTimeFields[] = {
    {1970, 3000, L'/'}, {1, 12, L'/'}, {1, 31, L' '}, {0, 23, L':'}, {0, 59, L':'}, {0, 59, L' '},
};

// The six numbers of a text in the form "year/month/day hour:minute:second", or nothing when one is
// missing or out of its range.
std::optional<std::array<int, 6>> ScanTime(std::wstring_view text) {
  std::array<int, 6> numbers{};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const TimeField& field = kTimeFields[i];
    const std::optional<int> number = TakeNumber(text);
    if (!number || *number < field.lowest || *number > field.highest) return {};
    numbers[i] = *number;
    if (field.end == L' ') continue;
    if (!text.starts_with(field.end)) return {};
    text.remove_prefix(1);
  }
  return numbers;
}

CTime ServerTime(std::wstring_view text) {
  const auto numbers = ScanTime(text);
  if (!numbers) return CTime();
  std::tm local{};
  local.tm_year = (*numbers)[0] - 1900;
  local.tm_mon = (*numbers)[1] - 1;
  local.tm_mday = (*numbers)[2];
  local.tm_hour = (*numbers)[3];
  local.tm_min = (*numbers)[4];
  local.tm_sec = (*numbers)[5];
  local.tm_isdst = -1;
  local.tm_wday = -1;  // -1 is a time as well; a failure leaves the day of the week alone
  const std::time_t time = std::mktime(&local);
  if (local.tm_wday < 0) return CTime();
  return CTime(static_cast<std::int64_t>(time) + kServerTimeCorrection);
}

}  // namespace

// One connection, which ends with the scope.
class CSharedPrinterCommunication::Exchange {
 public:
  explicit Exchange(CSharedPrinterCommunication& channel) : channel_(channel) {}
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() { channel_.Disconnect(); }

  bool Open() {
    if (channel_.m_socket < 0) channel_.Connect();
    return channel_.m_socket >= 0;
  }

  bool Send(const std::string& frame) {
    return SendTcp(channel_.m_socket, frame.data(), frame.size(), data_wait);
  }

 private:
  CSharedPrinterCommunication& channel_;
};

CSharedPrinterCommunication::CSharedPrinterCommunication(const CString& server, int port,
                                                         int connect_timeout, int retry_count)
    : m_server(server),
      m_port(port),
      m_connectTimeout(connect_timeout),
      m_retryCount(retry_count),
      m_socket(kNoSocket) {
  StartSockets();
}

CSharedPrinterCommunication::~CSharedPrinterCommunication() = default;

unsigned long CSharedPrinterCommunication::Connect() {
  Disconnect();
  m_socket = OpenTcpSocket();
  if (m_socket < 0) return kConnectFailed;
  if (SocketConnect(m_socket) != 0) return 0;
  // Under way counts as made: the send that follows decides.
  if (GetLastError() == kErrorWouldBlock) return 0;
  Disconnect();
  return kConnectFailed;
}

int CSharedPrinterCommunication::SocketConnect(int socket) {
  static constexpr wchar_t kFunction[] = L"CSharedPrinterCommunication::SocketConnect";
  const std::optional<std::string> host = EncodeText(kCodePageAnsi, m_server);
  Log4cxxMgr::LogOutDetail(2, 150001, kFunction, __LINE__, L"共有プリンタ転送: 接続情報生成開始");
  if (!host || host->size() >= kHostSize) {
    SetLastError(kErrorHostNotFound);
    return 0;
  }
  const std::optional<std::uint32_t> address = ResolveHost(*host);
  if (!address) return 0;
  Log4cxxMgr::LogOutDetail(2, 150002, kFunction, __LINE__, L"共有プリンタ転送: 接続情報生成完了");
  Log4cxxMgr::LogOutDetail(2, 150003, kFunction, __LINE__, L"共有プリンタ転送: 接続開始");
  const bool is_made = ConnectTcp(socket, *address, static_cast<std::uint16_t>(m_port),
                                  milliseconds(m_connectTimeout));
  Log4cxxMgr::LogOutDetail(2, 150004, kFunction, __LINE__, L"共有プリンタ転送: 接続完了");
  return is_made ? 1 : 0;
}

void CSharedPrinterCommunication::Disconnect() {
  if (m_socket >= 0) CloseTcpSocket(m_socket);
  m_socket = kNoSocket;
}

int CSharedPrinterCommunication::SendNemiInfFile(const CString& path) try {
  const std::optional<std::string> frame = MakeFileFrame(InternalPath(path));
  if (!frame) return 0;
  int attempt = 0;
  do {
    Exchange exchange(*this);
    if (exchange.Open() && exchange.Send(*frame) && Receive() != 0) return 1;
  } while (attempt++ < m_retryCount);
  return 0;
} catch (const std::exception&) {
  return 0;
}

int CSharedPrinterCommunication::SendSpoolPrintOut(const CString& job_user, const CString& job_id,
                                                   const CString& client_name) try {
  const std::optional<std::string> frame = MakePrintOutFrame(job_user, job_id, client_name);
  if (!frame) return 0;
  Exchange exchange(*this);
  return exchange.Open() && exchange.Send(*frame) && ReceiveCR06() != 0 ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

CTime CSharedPrinterCommunication::GetServerTime(const CString& /*unused*/) try {
  std::array<char, kTimeAnswerSize + 1> answer{};  // whatever comes, it ends with a NUL
  bool is_answered = false;
  {
    Exchange exchange(*this);
    if (!exchange.Open()) return CTime();
    is_answered = exchange.Send(MakeTimeFrame()) && ReceiveTime(answer.data()) != 0;
  }
  const CString text = CUtil::ConvertToUnicode(kCodePageAnsi, answer.data());
  Log4cxxMgr::LogOutDetail(3, 150101, L"CSharedPrinterCommunication::GetServerTime", __LINE__,
                           Format(L"共有プリンタサーバ時刻受信/[%s]", text));
  return is_answered ? ServerTime(text) : CTime();
} catch (const std::exception&) {
  return CTime();
}

// Header and body of the answer to CS02, one after the other into the same buffer.
int CSharedPrinterCommunication::ReceiveTime(char* buffer) {
  if (ReceiveData(m_socket, static_cast<int>(kHeaderSize), buffer) == 0) return 0;
  const auto length = static_cast<std::int32_t>(LengthOf(buffer));
  std::memset(buffer, 0, kTimeAnswerSize);
  return ReceiveData(m_socket, length, buffer);
}

int CSharedPrinterCommunication::Receive() { return ReceiveStatus("CR01"); }

int CSharedPrinterCommunication::ReceiveCR06() { return ReceiveStatus("CR06"); }

int CSharedPrinterCommunication::ReceiveStatus(const char* command) {
  std::array<char, kStatusAnswerSize> answer{};
  std::size_t received = 0;
  while (received < answer.size()) {
    if (CheckSocketStat(0) == 0) return 0;
    const std::optional<std::size_t> count =
        ReceiveTcp(m_socket, answer.data() + received, answer.size() - received);
    if (!count || *count == 0) return 0;
    received += *count;
  }
  if (std::memcmp(answer.data(), command, 4) != 0) return 0;
  return answer[4] == kRefused ? 0 : 1;
}

int CSharedPrinterCommunication::ReceiveData(int socket, int length, char* buffer) {
  static constexpr wchar_t kFunction[] = L"CSharedPrinterCommunication::ReceiveData";
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, Format(L"受信するデータ長：%d", length));
  if (length > kTimeAnswerSize) return 0;
  if (length > 0) std::memset(buffer, 0, static_cast<std::size_t>(length));
  for (int received = 0; received < length;) {
    if (WaitForSocket(socket, SocketEvent::kReadable, data_wait) == SocketWait::kTimeout) {
      Log4cxxMgr::LogOutDetail(5, 141128, kFunction, __LINE__, static_cast<int>(GetLastError()),
                               L"クライアント通信で受信タイムアウトが発生しました。");
      return 0;
    }
    const std::optional<std::size_t> count =
        ReceiveTcp(socket, buffer + received, static_cast<std::size_t>(length - received));
    Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, Format(L"%dバイトを受信しました", length));
    if (!count && GetLastError() == kErrorWouldBlock) continue;
    if (!count) {
      Log4cxxMgr::LogOutDetail(5, 101128, kFunction, __LINE__, static_cast<int>(GetLastError()),
                               L"クライアント通信スレッドの受信エラーが発生しました。");
      return 0;
    }
    if (*count == 0) break;
    received += static_cast<int>(*count);
  }
  return 1;
}

int CSharedPrinterCommunication::CheckSocketStat(int mode) {
  if (mode != 0 && mode != 1) return 0;
  const SocketEvent event = mode == 0 ? SocketEvent::kReadable : SocketEvent::kWritable;
  return WaitForSocket(m_socket, event, status_wait) == SocketWait::kReady ? 1 : 0;
}

ScopedExchangeWaits::ScopedExchangeWaits(microseconds status, microseconds data)
    : old_status_(status_wait.exchange(status)), old_data_(data_wait.exchange(data)) {}

ScopedExchangeWaits::~ScopedExchangeWaits() {
  status_wait = old_status_;
  data_wait = old_data_;
}

}  // namespace vk::tq
