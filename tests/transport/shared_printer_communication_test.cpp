#include "transport/shared_printer_communication.h"

#include <sys/socket.h>

#include <ctime>

#include "platform/error.h"
#include "platform/path.h"
#include "support/shared_printer_server.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using Texts = std::vector<std::string>;

const Texts kConnectLines = {
    "2 150001 CSharedPrinterCommunication::SocketConnect 共有プリンタ転送: 接続情報生成開始",
    "2 150002 CSharedPrinterCommunication::SocketConnect 共有プリンタ転送: 接続情報生成完了",
    "2 150003 CSharedPrinterCommunication::SocketConnect 共有プリンタ転送: 接続開始",
    "2 150004 CSharedPrinterCommunication::SocketConnect 共有プリンタ転送: 接続完了"};

std::string TimeLine(std::string_view text) {
  return "3 150101 CSharedPrinterCommunication::GetServerTime 共有プリンタサーバ時刻受信/[" +
         std::string(text) + "]";
}

std::string BigEndian(std::size_t length) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(length >> shift & 0xFF);
  return bytes;
}

std::string Filled(std::string text, std::size_t size) {
  text.resize(size, '\0');
  return text;
}

// Keeps the frame of each connection, and answers it.
auto Answering(std::string& frame, const std::string& answer) {
  return [&frame, answer](Peer& peer, int) {
    frame = ReadFrame(peer);
    char byte = 0;
    if (recv(peer.get(), &byte, 1, MSG_DONTWAIT) > 0) frame += "and more than was announced";
    peer.Write(answer);
  };
}

// The answer to CS02.
std::string TimeAnswer(std::string_view text) {
  return "CR02" + BigEndian(text.size()) + std::string(text);
}

template <class Server>
CSharedPrinterCommunication ChannelTo(const Server& server, int retry = 0) {
  return {L"127.0.0.1", server.port(), 5000, retry};
}

class SharedPrinterCommunicationTest : public ProductTest {
 protected:
  // A print information file; the channel looks at its name and length only.
  CString MakeFile(std::string_view contents = "contents", std::string_view name = "job.xml") {
    WriteNative(native(name), contents);
    return path(FromUtf8(name));
  }
};

TEST_F(SharedPrinterCommunicationTest, DeliversAFileAsItIsStored) {
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"65001", "job.xml", "job"},
      {"65001", "b.xmlc.xml", "bc"},
      {"65001", "abcdefghijklmnopqrstuvwxyz0123456789.xml", "abcdefghijklmnopqrstuvwxyz"},
      // Nine characters of three bytes: the ninth is cut after two.
      {"65001", "ああああああああああああ.xml",
       FromHex("e38182e38182e38182e38182e38182e38182e38182e38182e381")},
      {"932", "表.xml", FromHex("955c")},
      {"932", "é.xml", "?"},
  };
  std::string frame;
  LoopbackServer server(Answering(frame, "CR010"));
  for (const auto& [code_page, file, name] : cases) {
    const ScopedEnvironment use_code_page("TQ_ANSI_CODEPAGE", code_page);
    const std::string contents("\0\r\n\xFF\x1A", 5);
    const CString path = MakeFile(contents, file);
    log_.Clear();
    ASSERT_EQ(ChannelTo(server).SendNemiInfFile(path), 1) << file;
    EXPECT_EQ(log_.texts(), kConnectLines);
    EXPECT_EQ(ToHex(frame), ToHex("CS01" + BigEndian(31) + Filled(name, 26) + contents)) << file;
  }
  // A native path, and more in the file than its size says, as if it had grown.
  EXPECT_EQ(ChannelTo(server).SendNemiInfFile(L"/proc/self/status"), 1);
  EXPECT_EQ(frame, "CS01" + BigEndian(26) + Filled("status", 26));
}

TEST_F(SharedPrinterCommunicationTest, FileThatCannotBeReadMakesNoConnection) {
  LoopbackServer server([](Peer& peer, int) { ReadFrame(peer); });
  CSharedPrinterCommunication channel = ChannelTo(server, 3);
  const CString huge = MakeFile("", "huge.xml");
  ASSERT_EQ(truncate(native("huge.xml").c_str(), (256L << 20) + 1), 0);
  for (const CString& file : {path(L"missing.xml"), temp_.path(), huge}) {
    EXPECT_EQ(channel.SendNemiInfFile(file), 0);
  }
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "4711");
  EXPECT_EQ(channel.SendNemiInfFile(MakeFile()), 0);
  EXPECT_EQ(channel.SendSpoolPrintOut(L"u", L"j", L"c"), 0);
  EXPECT_EQ(server.connections(), 0);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(SharedPrinterCommunicationTest, StatusAnswerDecides) {
  const std::tuple<std::string, int, int> cases[] = {
      {"CR010", 1, 0}, {"CR060", 0, 1}, {"CR011", 0, 0},
      {"CR061", 0, 0}, {"CR01", 0, 0},  {"CR010 and more than was asked for", 1, 0},
      {"cr010", 0, 0}, {"", 0, 0},      {std::string("CR01\0", 5), 1, 0}};
  const CString path = MakeFile();
  for (const auto& [answer, delivery, print_out] : cases) {
    std::string frame;
    LoopbackServer server(Answering(frame, answer));
    EXPECT_EQ(ChannelTo(server).SendNemiInfFile(path), delivery) << answer;
    EXPECT_EQ(ChannelTo(server, 5).SendSpoolPrintOut(L"u", L"j", L"c"), print_out) << answer;
    EXPECT_EQ(server.connections(), 2) << "a print-out is not asked for twice";
  }
}

TEST_F(SharedPrinterCommunicationTest, DeliveryIsRepeatedUntilItIsAccepted) {
  const CString path = MakeFile();
  // How often it is repeated, and the connections that this makes.
  for (const auto& [retry, connections] : {std::pair(3, 3), {1, 2}, {0, 1}, {-1, 1}}) {
    LoopbackServer server([](Peer& peer, int index) {
      ReadFrame(peer);
      // Any failure counts, not the refusal alone.
      peer.Write(index == 2 ? "CR010" : index == 1 ? "CR011" : "");
    });
    EXPECT_EQ(ChannelTo(server, retry).SendNemiInfFile(path), retry == 3 ? 1 : 0);
    EXPECT_EQ(server.connections(), connections) << retry;
  }
}

TEST_F(SharedPrinterCommunicationTest, ServerThatIsNotReachedFailsWithTheLinesUpToThere) {
  const CString path = MakeFile();
  // The name is not resolved, by two attempts and another exchange.
  CSharedPrinterCommunication nobody(CString(256, L'x'), 9, 1000, 1);
  EXPECT_EQ(nobody.SendNemiInfFile(path), 0);
  SetLastError(kErrorWouldBlock);  // what is left of an earlier call decides nothing
  EXPECT_EQ(nobody.GetServerTime(L""), CTime());
  EXPECT_EQ(log_.texts(), Texts(3, kConnectLines[0]));
  // The connection is refused, which the send tells: nothing was asked, nothing came.
  log_.Clear();
  const Listener deaf(true);
  EXPECT_EQ(ChannelTo(deaf).SendNemiInfFile(path), 0);
  EXPECT_EQ(log_.texts(), kConnectLines);
  EXPECT_EQ(ChannelTo(deaf).GetServerTime(L""), CTime());
  EXPECT_EQ(log_.texts().back(), TimeLine(""));
}

TEST_F(SharedPrinterCommunicationTest, PrintOutRequestCarriesTheTextAndAsManyZeroBytes) {
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  std::string frame;
  LoopbackServer server(Answering(frame, "CR060"));
  EXPECT_EQ(ChannelTo(server).SendSpoolPrintOut(L"表", L"a&b%s", L"①"), 1);
  const std::string text =
      "<Velkorandia><QTL><JobUser>\x95\x5C</JobUser><JobAccessKey></JobAccessKey>"
      "<JobId>a&b%s</JobId><ClientName>\x87\x40</ClientName><PrintMode>OUTPUT</PrintMode>"
      "</QTL></Velkorandia>";
  const std::size_t size = 2 * text.size();
  EXPECT_EQ(ToHex(frame), ToHex("CS06" + BigEndian(size) + Filled(text, size)));
}

TEST_F(SharedPrinterCommunicationTest, TimeIsTheServersTextAndNineHours) {
  constexpr std::int64_t kNone = -32400;
  // What a text means in a time zone of the client, before the correction.
  const std::tuple<const char*, std::int64_t, Texts> kCases[] = {
      {"UTC0", 1767323045, {"2026/1/2 3:04:05", " 2026/ 01/ 2\t\r\n3: 4: +5 and more"}},
      {"UTC0", 1772496000, {"2026/2/31 0:00:00"}},     // 2026-03-03
      {"UTC0", 32535215999, {"3000/12/31 23:59:59"}},  // the last one
      {"JST-9", 1767323045, {"2026/1/2 12:04:05"}},
      {"JST-9", -1, {"1970/1/1 8:59:59"}},  // a second before the beginning is a time as well
      {"EST5EDT,M3.2.0,M11.1.0", 1782878400, {"2026/7/1 00:00:00"}},  // daylight saving time
      {"UTC0",
       kNone,
       {"2026/1/23:04:05", "2026/1/2 3:04:", "", "2026/13/2 3:04:05", "2026/1/0 3:04:05",
        "2026/1/2 24:04:05", "2026/1/2 -1:04:05", "2026/1/2 3:04:60", "1969/1/2 3:04:05",
        "3001/1/2 3:04:05", "4294969322/1/2 3:04:05"}},
  };
  std::string answer;
  std::string frame;
  LoopbackServer server([&](Peer& peer, int) {
    frame = peer.Read(8);
    peer.Write(TimeAnswer(answer));
  });
  for (const auto& [zone, expected, texts] : kCases) {
    const ScopedEnvironment set_zone("TZ", zone);
    tzset();
    for (const std::string& text : texts) {
      answer = text;
      const CTime time = ChannelTo(server, 5).GetServerTime(L"not read");
      EXPECT_EQ(time.GetTime(), expected - kNone) << text;
      EXPECT_EQ(log_.texts(3).back(), TimeLine(text));
    }
  }
  EXPECT_EQ(frame, std::string("CS02\0\0\0\1", 8));
}

// What announces too much, ends or breaks, or does not go on.
TEST_F(SharedPrinterCommunicationTest, AnswerWithATimeIsBounded) {
  const std::string kReceive = " CSharedPrinterCommunication::ReceiveData ";
  const std::string kArrived = "バイトを受信しました";
  const std::string announced = "2" + kReceive + "受信するデータ長：";
  const std::string timeout =
      "5 141128" + kReceive + "クライアント通信で受信タイムアウトが発生しました。 = 10060";
  const std::string error =
      "5 101128" + kReceive + "クライアント通信スレッドの受信エラーが発生しました。 = 10054";
  const std::string time = "2026/1/2 3:04:05";
  const std::string longest = time + std::string(1008, 'x');
  const std::string in_body = "CR02" + BigEndian(100) + time;
  enum End { kCloses, kStays, kBreaks };
  const struct {
    std::string answer;
    int length;  // as it is logged; 0 when it is not reached
    End end;
    bool is_time;
    Texts lines;
  } cases[] = {
      {TimeAnswer(longest), 1024, kCloses, true, {TimeLine(longest)}},
      {TimeAnswer(longest + "x"), 1025, kCloses, false, {TimeLine("")}},
      {"CR02" + BigEndian(0x7FFFFFFF) + longest, 0x7FFFFFFF, kCloses, false, {TimeLine("")}},
      {"CR02" + BigEndian(0xFFFFFFFF) + longest, -1, kCloses, false, {TimeLine("")}},
      {in_body, 100, kCloses, true, {TimeLine(time)}},
      {in_body, 100, kStays, false, {timeout, TimeLine(time)}},
      {"CR0", 0, kStays, false, {timeout, TimeLine("CR0")}},
      {in_body.substr(0, 8), 100, kBreaks, false, {error, TimeLine("")}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const ScopedExchangeWaits waits(milliseconds(60'000),
                                    milliseconds(c.end == kStays ? 100 : 20'000));
    log_.Clear();
    LoopbackServer server([&](Peer& peer, int) {
      if (c.end == kBreaks) peer.ResetOnClose();
      peer.Read(8);
      peer.Write(c.answer);
      if (c.end == kStays) peer.Read(1);  // until the client has had enough
      // Until the client waits for the body.
      for (int i = 0; c.end == kBreaks && i < 5000 && log_.lines().size() < 7; ++i) {
        std::this_thread::sleep_for(milliseconds(1));
      }
    });
    EXPECT_EQ(ChannelTo(server).GetServerTime(L"") != CTime(), c.is_time);
    Texts expected = kConnectLines;
    expected.insert(expected.end(), {announced + "8", "2" + kReceive + "8" + kArrived});
    if (c.length != 0) expected.push_back(announced + std::to_string(c.length));
    expected.insert(expected.end(), c.lines.begin(), c.lines.end());
    Texts lines = log_.texts();
    // A body may come in any number of pieces.
    std::erase(lines, "2" + kReceive + std::to_string(c.length) + kArrived);
    EXPECT_EQ(lines, expected);
  }
}

}  // namespace
}  // namespace vk::tq::testing
