/// The client of the shared printer server.
#pragma once

#include <chrono>

#include "platform/types.h"

namespace vk::tq {

/// Knows three exchanges with the shared printer server: it delivers a print information file, asks
/// for the print-out of a job that is spooled there, and asks for the server's time. Each exchange
/// is one short TCP connection over IPv4: connect, one frame, the answer, close. Between two
/// exchanges no socket is open, and a failed exchange leaves nothing to clear up. An object belongs
/// to one thread at a time and takes no mutex. No operation throws: one that lacks memory fails.
/// docs/wire-protocol.md shows the frames.
///
/// Results are 1 when the server accepted, else 0. Why an exchange failed is not told. These lines
/// are written on the way:
///
/// | level, number | function        | text                                                   |
/// |---------------|-----------------|--------------------------------------------------------|
/// | 2, 150001     | `SocketConnect` | "共有プリンタ転送: 接続情報生成開始"                   |
/// | 2, 150002     | `SocketConnect` | "共有プリンタ転送: 接続情報生成完了": the name resolved |
/// | 2, 150003     | `SocketConnect` | "共有プリンタ転送: 接続開始"                           |
/// | 2, 150004     | `SocketConnect` | "共有プリンタ転送: 接続完了", whatever came of it      |
/// | 2, 0          | `ReceiveData`   | "受信するデータ長：%d", "%dバイトを受信しました"       |
/// | 5, 141128     | `ReceiveData`   | "クライアント通信で受信タイムアウトが発生しました。"   |
/// | 5, 101128     | `ReceiveData`   | "クライアント通信スレッドの受信エラーが発生しました。" |
/// | 3, 150101     | `GetServerTime` | "共有プリンタサーバ時刻受信/[%s]" with what came        |
///
/// Text goes over the line in the ANSI code page. A character that it lacks becomes '?'; when there
/// is no such code page, the exchange fails before it connects.
///
/// A connection that is refused, or not made when the time-out ends, still counts as made; the
/// frame then cannot be sent, and the exchange fails there at once. A peer that takes or gives
/// nothing fails it after RECEIVE_TIMEOUT, counted anew for each piece; one that owes a status
/// answer fails it after 5 seconds without a piece of it. Only the resolution of the server's name
/// has no limit here: it takes as long as the system's resolver tries, in each attempt anew.
class TQ_EXPORT CSharedPrinterCommunication : public CObject {
 public:
  /// The longest wait for each piece of data, in microseconds: 10 seconds.
  static constexpr int RECEIVE_TIMEOUT = 10000000;

  /// `server` is a host name or a dotted address; one of more than 255 bytes in the ANSI code page
  /// does not resolve. Of `port` the low 16 bits count. `connect_timeout` is in milliseconds; a
  /// negative one waits as long as the system tries. `retry_count` is how often SendNemiInfFile
  /// tries again after its first attempt.
  CSharedPrinterCommunication(const CString& server, int port, int connect_timeout,
                              int retry_count);
  CSharedPrinterCommunication(const CSharedPrinterCommunication&) = delete;
  CSharedPrinterCommunication& operator=(const CSharedPrinterCommunication&) = delete;
  ~CSharedPrinterCommunication() override;

  /// Delivers a print information file as it is stored, under its name without directory, extension
  /// and any further ".xml", of which the first 26 bytes go out; that cut may fall inside a
  /// character. The file is read first, locked meanwhile, and at most as many bytes of it as it had
  /// when it was opened: one that grows meanwhile is sent as it was sized, one that shrinks with
  /// what was left to read. A file that is missing, cannot be read, or has more than 256 MiB (it is
  /// held in memory, and no print information file comes near) gives 0 before any connection is
  /// made. An attempt that fails, or that the server refuses, is repeated at once on a new
  /// connection.
  int SendNemiInfFile(const CString& path);

  /// Asks for the print-out of a job. The values go into an XML text as they are: what XML does not
  /// allow must not stand in them. There is no second try.
  int SendSpoolPrintOut(const CString& job_user, const CString& job_id, const CString& client_name);

  /// The server's time: its text, read as local time, plus nine hours. CTime(0) when no usable time
  /// came: no connection, no answer in time, an answer that is not "year/month/day
  /// hour:minute:second" with a year from 1970 to 3000, or one that announces more than 1024 bytes:
  /// the line of its length is then the last one of `ReceiveData`. A connection that the server
  /// closes ends the text where it is. There is no second try. The argument is not read.
  CTime GetServerTime(const CString& unused);

 private:
  class Exchange;

  unsigned long Connect();
  int SocketConnect(int socket);
  void Disconnect();
  int Receive();
  int ReceiveCR06();
  int ReceiveStatus(const char* command);
  int ReceiveData(int socket, int length, char* buffer);
  int ReceiveTime(char* buffer);
  int CheckSocketStat(int mode);

  CString m_server;
  int m_port;
  int m_connectTimeout;
  int m_retryCount;
  int m_socket;
};

/// Replaces the waits of every exchange for a scope: that for a piece of a status answer, and that
/// for any other piece of data. For tests that would otherwise last long.
class ScopedExchangeWaits {
 public:
  ScopedExchangeWaits(std::chrono::microseconds status, std::chrono::microseconds data);
  ScopedExchangeWaits(const ScopedExchangeWaits&) = delete;
  ScopedExchangeWaits& operator=(const ScopedExchangeWaits&) = delete;
  ~ScopedExchangeWaits();

 private:
  std::chrono::microseconds old_status_;
  std::chrono::microseconds old_data_;
};

}  // namespace vk::tq
