#include "transport/shared_printer_communication.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <ctime>
#include <sstream>

#include "platform/error.h"
#include "servers/shared_printer_server.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

std::string BigEndian(std::size_t length) {
  const std::uint32_t bytes = htonl(static_cast<std::uint32_t>(length));
  return {reinterpret_cast<const char*>(&bytes), sizeof bytes};
}

std::string Filled(std::string text, std::size_t size) {
  text.resize(size, '\0');
  return text;
}

// The answer to CS02.
std::string TimeAnswer(std::string_view text) {
  return "CR02" + BigEndian(text.size()) + std::string(text);
}

// The server keeps the frame of each connection, and gives them all one answer.
class SharedPrinterCommunicationTest : public ProductTest {
 protected:
  static CSharedPrinterCommunication ChannelTo(std::uint16_t port, int retry = 0) {
    return {L"127.0.0.1", port, 5000, retry};
  }
  CSharedPrinterCommunication Channel(int retry = 0) { return ChannelTo(server_.port(), retry); }
  // The channel looks at its name and length only.
  CString MakeFile(std::string_view contents = "contents", std::string_view name = "job.xml") {
    WriteNative(native(name), contents);
    return path(FromUtf8(name));
  }
  // With the connections so far.
  void Tell(int result) {
    ProductTest::Tell(std::to_string(result) + " " + std::to_string(server_.connections()));
  }

  Guarded<std::string> frame_;
  Guarded<std::string> answer_{"CR010"};
  LoopbackServer server_{[this](Peer& peer, int) {
    std::string frame = servers::ReadFrame(peer);
    char byte = 0;
    if (recv(peer.get(), &byte, 1, MSG_DONTWAIT) > 0) frame += "and more than was announced";
    frame_ = frame;
    peer.Write(*answer_);
  }};
};

TEST_F(SharedPrinterCommunicationTest, DeliversAFileAsItIsStored) {
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"65001", "b.xmlc.xml", "bc"},
      // Nine characters of three bytes: the ninth is cut after two.
      {"65001", "ああああああああああああ.xml", "ああああああああ\xe3\x81"},
      {"932", "表é.xml", "\x95\x5c?"}};
  for (const auto& [code_page, file, name] : cases) {
    const ScopedEnvironment use_code_page("TQ_ANSI_CODEPAGE", code_page);
    const std::string contents("\0\r\n\xFF\x1A", 5);
    EXPECT_EQ(Channel().SendNemiInfFile(MakeFile(contents, file)), 1) << file;
    EXPECT_EQ(*frame_, "CS01" + BigEndian(31) + Filled(name, 26) + contents) << file;
  }
}

// Files of the kernel hold less than their size says, or more, as if they had shrunk or grown.
TEST_F(SharedPrinterCommunicationTest, WhatIsAnnouncedIsWhatWasRead) {
  const std::string shrunk = "/sys/devices/system/cpu/online";
  if (!ExistsNative(shrunk)) GTEST_SKIP() << "there is no sysfs";
  const std::string contents = ReadNative(shrunk);
  EXPECT_EQ(Channel().SendNemiInfFile(FromUtf8(shrunk)), 1);
  EXPECT_EQ(*frame_, "CS01" + BigEndian(26 + contents.size()) + Filled("online", 26) + contents);
  EXPECT_EQ(Channel().SendNemiInfFile(L"/proc/self/status"), 1);
  EXPECT_EQ(*frame_, "CS01" + BigEndian(26) + Filled("status", 26));
}

TEST_F(SharedPrinterCommunicationTest, FileThatCannotBeReadMakesNoConnection) {
  const CString huge = MakeFile("", "huge.xml");
  ASSERT_EQ(truncate(native("huge.xml").c_str(), (256L << 20) + 1), 0);
  for (const CString& file : {path(L"missing.xml"), temp_.path(), huge}) {
    EXPECT_EQ(Channel(3).SendNemiInfFile(file), 0);
  }
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "4711");
  EXPECT_EQ(Channel().SendNemiInfFile(MakeFile()), 0);
  EXPECT_EQ(server_.connections(), 0);
  EXPECT_TRUE(log_.texts().empty());
}

// shared_printer_log.txt has what is told of answers, and of servers that give none.
TEST_F(SharedPrinterCommunicationTest, EachAnswerIsTold) {
  for (const std::string& answer :
       {"CR010"s, "CR060"s, "CR011"s, "CR061"s, "CR01"s, "CR010 and more than was asked for"s,
        "cr010"s, ""s, "CR01\0"s}) {
    answer_ = answer;
    Tell(Channel().SendNemiInfFile(MakeFile()));
    Tell(Channel(5).SendSpoolPrintOut(L"u", L"j", L"c"));  // is not asked for twice
  }
  const std::string time = "2026/1/2 3:04:05";
  const std::string longest = time + std::string(1008, 'x');
  for (const std::string& answer :
       {TimeAnswer(longest), TimeAnswer(longest + "x"), "CR02" + BigEndian(0xFFFFFFFF) + longest,
        "CR02" + BigEndian(100) + time}) {
    answer_ = answer;
    Tell(Channel().GetServerTime(L"") != CTime());
  }
  // The name is not resolved, by two attempts.
  SetLastError(kErrorWouldBlock);  // what is left of an earlier call decides nothing
  Tell(CSharedPrinterCommunication(CString(256, L'x'), 9, 1000, 1).SendNemiInfFile(MakeFile()));
  // The connection is refused, which the send tells: nothing was asked, nothing came.
  const Listener deaf(true);
  Tell(ChannelTo(deaf.port()).GetServerTime(L"") != CTime());
  const ScopedExchangeWaits waits(milliseconds(60'000), milliseconds(100));
  LoopbackServer silent([](Peer& peer, int) { peer.Read(std::string::npos); });
  Tell(ChannelTo(silent.port()).GetServerTime(L"") != CTime());
  EXPECT_EQ(told_, ReadNative(TQ_TEST_DATA "/shared_printer_log.txt"));
}

TEST_F(SharedPrinterCommunicationTest, AnEndAtAnyByteFailsTheExchangeAlone) {
  const CString file = MakeFile();
  const std::string answer = TimeAnswer("2026/1/2 3:04:05");
  for (std::size_t size = 0; size < answer.size(); ++size) {
    answer_ = answer.substr(0, size);
    // Without its last digit it is a time as well.
    EXPECT_EQ(size + 1 == answer.size(), Channel().GetServerTime(L"") != CTime()) << size;
    EXPECT_EQ(0, Channel().SendNemiInfFile(file)) << size;
  }
  answer_ = answer;
  EXPECT_NE(CTime(), Channel().GetServerTime(L""));
}

TEST_F(SharedPrinterCommunicationTest, DeliveryIsRepeatedUntilItIsAccepted) {
  // How often it is repeated, and the connections that this makes.
  for (const auto& [retry, connections] : {std::pair(3, 3), {1, 2}, {0, 1}, {-1, 1}}) {
    LoopbackServer server([](Peer& peer, int index) {
      servers::ReadFrame(peer);
      peer.Write(index == 2 ? "CR010" : index == 1 ? "CR011" : "");  // any failure counts
    });
    EXPECT_EQ(ChannelTo(server.port(), retry).SendNemiInfFile(MakeFile()), retry == 3 ? 1 : 0);
    EXPECT_EQ(server.connections(), connections) << retry;
  }
  // A server that is gone meanwhile is an error, and no signal.
  LoopbackServer gone([](Peer&, int) {});
  EXPECT_EQ(ChannelTo(gone.port()).SendNemiInfFile(MakeFile(std::string(20 << 20, 'x'))), 0);
}

TEST_F(SharedPrinterCommunicationTest, PrintOutRequestCarriesTheTextAndAsManyZeroBytes) {
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  answer_ = "CR060";
  EXPECT_EQ(Channel().SendSpoolPrintOut(L"表", L"a&b%s", L"①"), 1);
  const std::string text =
      "<Velkorandia><QTL><JobUser>\x95\x5C</JobUser><JobAccessKey></JobAccessKey>"
      "<JobId>a&b%s</JobId><ClientName>\x87\x40</ClientName><PrintMode>OUTPUT</PrintMode>"
      "</QTL></Velkorandia>";
  const std::size_t size = 2 * text.size();
  EXPECT_EQ(*frame_, "CS06" + BigEndian(size) + Filled(text, size));
}

// server_times.txt has a time zone of the client, what the server's text means there, and that text.
TEST_F(SharedPrinterCommunicationTest, TimeIsTheServersTextAndNineHours) {
  std::istringstream rows(ReadNative(TQ_TEST_DATA "/server_times.txt"));
  std::string zone, time, text;
  while (std::getline(rows, zone, '|') && std::getline(rows, time, '|') &&
         std::getline(rows, text)) {
    const ScopedEnvironment set_zone("TZ", zone.c_str());
    tzset();
    answer_ = TimeAnswer(text);
    const std::int64_t expected = time == "none" ? 0 : std::stoll(time) + 32400;
    EXPECT_EQ(Channel(5).GetServerTime(L"not read").GetTime(), expected) << text;
  }
  EXPECT_EQ(*frame_, std::string("CS02\0\0\0\1", 8));
}

}  // namespace
}  // namespace vk::tq::testing
