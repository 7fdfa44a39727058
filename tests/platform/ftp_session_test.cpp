#include "platform/ftp_session.h"

#include <sys/socket.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/error.h"
#include "platform/tcp_socket.h"
#include "support/ftp_client_test.h"
#include "support/loopback.h"
#include "support/scripted_ftp_peer.h"

namespace vk::tq {
namespace {

using ::testing::Contains;
using testing::FtpClientTest;
using testing::kSecret;
using testing::Listener;
using testing::ListNative;
using testing::ReadNative;
using testing::ScriptedFtpPeer;
using testing::WriteNative;

using Session = ScriptedFtpPeer::Session;
using std::chrono::milliseconds;

constexpr FtpTimeout kAllTimeouts[] = {FtpTimeout::kConnect, FtpTimeout::kControlSend,
                                       FtpTimeout::kControlReceive, FtpTimeout::kDataSend,
                                       FtpTimeout::kDataReceive};

class FtpSessionTest : public FtpClientTest {
 protected:
  ~FtpSessionTest() override { CloseFtpHandle(internet_); }

  FtpHandle Connect(std::uint16_t port, const wchar_t* host = L"127.0.0.1") {
    connection_ = ConnectFtp(internet_, host, port, L"tester", kSecret);
    return connection_;
  }
  // Only one of the waits ends at all.
  void SetTimeouts(FtpTimeout shortest) {
    for (const FtpTimeout which : kAllTimeouts) {
      EXPECT_TRUE(SetFtpTimeout(internet_, which, which == shortest ? 500 : kNoFtpTimeout));
    }
  }
  bool Put(const wchar_t* name) { return PutFtpFile(connection_, path(name), name); }
  bool Get(const wchar_t* name) { return GetFtpFile(connection_, name, path(name)); }

  FtpHandle internet_ = OpenFtp(L"test");
  FtpHandle connection_ = kNoFtpHandle;
};

TEST_F(FtpSessionTest, AHandleIsGoodForItsKindUntilItIsClosed) {
  ScriptedFtpPeer peer;
  EXPECT_FALSE(SetFtpDirectory(internet_, L"x"));
  EXPECT_EQ(GetLastError(), kErrorInternetIncorrectHandleType);
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_FALSE(SetFtpTimeout(connection_, FtpTimeout::kConnect, 1));
  EXPECT_EQ(GetLastError(), kErrorInternetIncorrectHandleType);

  // The connection goes with the handle that it was made from.
  EXPECT_TRUE(CloseFtpHandle(internet_));
  EXPECT_THAT(peer.commands(), Contains("QUIT"));
  for (const FtpHandle stale : {internet_, connection_, kNoFtpHandle}) {
    SetLastError(0);
    EXPECT_FALSE(CloseFtpHandle(stale));
    EXPECT_EQ(GetLastError(), kErrorInvalidHandle);
    SetLastError(0);
    EXPECT_FALSE(FtpFileSize(stale, L"x"));
    EXPECT_EQ(GetLastError(), kErrorInvalidHandle);
  }
  EXPECT_NE(OpenFtp(L""), internet_);
}

TEST_F(FtpSessionTest, ReadsRepliesOfSeveralLines) {
  ScriptedFtpPeer peer;
  peer.On("", "220-hello\r\n220x\r\n 220 not yet\r\n220 ready");
  peer.On("USER", "331-your\r\n331 password?");
  peer.On("CWD", [](Session& session, const std::string&) {
    for (const char* piece : {"25", "0-a\r", "\n\r\n550 b\n250-\r\n250", " c\r\n"}) {
      session.ReplyRaw(piece);
      std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
  });
  peer.On("DELE", "550-first\r\n  550 second\r\n550 last");
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_TRUE(SetFtpDirectory(connection_, L"a"));
  EXPECT_FALSE(DeleteFtpFile(connection_, L"b"));
  EXPECT_EQ(GetLastError(), kErrorInternetExtendedError);
  std::array<char, 100> text{};
  ErrorCode code = 0;
  EXPECT_TRUE(LastFtpResponse(code, text));
  EXPECT_EQ(code, 550U);
  EXPECT_STREQ(text.data(), "550-first\r\n  550 second\r\n550 last");
  EXPECT_TRUE(RenameFtpFile(connection_, L"a", L"b"));
  EXPECT_TRUE(LastFtpResponse(code, text));
  EXPECT_EQ(code, 0U);
}

TEST_F(FtpSessionTest, FollowsThePassivePortButNoOtherHost) {
  struct Case {
    const char* before;
    const char* after;
    bool works;
  };
  const Case cases[] = {
      {"227 Entering Passive Mode (203,0,113,9,", ")", true},
      {"227 here 1,2: 127,0,0,1,", " go", true},
      {"227 999,127,0,0,1,", ",1", true},
      {"227 (1127,0,0,1,", ")", false},
      {"227 (127,0,0,1,256,", ")", false},
      {"227 (127,0,0,", "", false},
      {"227 none", "", false},
  };
  WriteNative(native("a"), "bytes");
  for (const Case& test : cases) {
    SCOPED_TRACE(test.before);
    ScriptedFtpPeer peer;
    peer.On("PASV", [&test](Session& session, const std::string&) {
      const std::uint16_t port = session.OpenPassive();
      session.Reply(test.before + std::to_string(port / 256) + "," + std::to_string(port % 256) +
                    test.after);
      return true;
    });
    ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
    EXPECT_EQ(Put(L"a"), test.works);
    if (test.works) {
      EXPECT_EQ(peer.file("a"), "bytes");
    } else {
      EXPECT_EQ(GetLastError(), kErrorInvalidData);
      EXPECT_EQ(peer.count("STOR"), 0);
    }
    CloseFtpHandle(connection_);
  }
}

TEST_F(FtpSessionTest, SpeaksToAnIpv6Peer) {
  std::unique_ptr<ScriptedFtpPeer> peer;
  try {
    peer = std::make_unique<ScriptedFtpPeer>(true);
  } catch (const std::runtime_error&) {
    GTEST_SKIP() << "no IPv6 on loopback";
  }
  WriteNative(native("a"), "bytes");
  ASSERT_NE(Connect(peer->port(), L"::1"), kNoFtpHandle);
  EXPECT_TRUE(Put(L"a"));
  EXPECT_EQ(peer->file("a"), "bytes");
  EXPECT_EQ(peer->count("EPSV"), 1);
}

// A reply that does not belong where it stands breaks the connection: nobody can tell what the
// server waits for.
TEST_F(FtpSessionTest, TakesNoReplyOfAnotherKind) {
  WriteNative(native("a"), "bytes");
  const auto run = [&](const std::string& verb) {
    if (verb == "CWD") return SetFtpDirectory(connection_, L"a");
    if (verb == "DELE") return DeleteFtpFile(connection_, L"a");
    if (verb == "SIZE") return FtpFileSize(connection_, L"a").has_value();
    if (verb == "STOR" || verb == "TYPE") return Put(L"a");
    return RenameFtpFile(connection_, L"a", L"b");
  };
  struct Case {
    const char* verb;
    const char* reply;
    bool works;
  };
  const Case cases[] = {
      {"CWD", "150 soon\r\n250 there", true},
      {"CWD", "150 soon\r\n150 sooner\r\n250 there", false},
      {"CWD", "350 and what?", false},
      {"DELE", "331 password?", false},
      {"SIZE", "350 5", false},
      {"TYPE", "300 hm", false},
      {"RNFR", "250 done", false},
      {"RNTO", "350 to what?", false},
      {"STOR", "350 and what?", false},
      {"STOR", "150 go on\r\n226 stored", false},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(std::string(test.verb) + ' ' + test.reply);
    ScriptedFtpPeer peer;
    peer.On(test.verb, [&test](Session& session, const std::string&) {
      if (std::string_view(test.verb) == "STOR") {
        session.Reply("150 go on");
        session.TakeData();
      }
      session.Reply(test.reply);
      return true;
    });
    ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
    EXPECT_EQ(run(test.verb), test.works);
    if (!test.works) {
      EXPECT_EQ(GetLastError(), kErrorInvalidData);
      EXPECT_FALSE(DeleteFtpFile(connection_, L"a"));
      EXPECT_EQ(GetLastError(), kErrorInternetConnectionAborted);
    }
    CloseFtpHandle(connection_);
  }
}

TEST_F(FtpSessionTest, TellsAResetFromAnEndDuringTheLogIn) {
  for (const bool is_reset : {false, true}) {
    ScriptedFtpPeer peer;
    peer.On("USER", [is_reset](Session& session, const std::string&) {
      if (is_reset) session.CutControl();
      return false;
    });
    EXPECT_EQ(Connect(peer.port()), kNoFtpHandle);
    EXPECT_EQ(GetLastError(),
              is_reset ? kErrorInternetConnectionReset : kErrorInternetConnectionAborted);
  }
}

// A connection that the server has closed is not made anew: the directory would be another one.
TEST_F(FtpSessionTest, ABrokenConnectionStaysBroken) {
  ScriptedFtpPeer peer;
  peer.On("CWD", [](Session& session, const std::string&) {
    session.ReplyRaw("250 there\r\n421 you were idle\r\n");
    return false;
  });
  WriteNative(native("a"), "bytes");
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_TRUE(SetFtpDirectory(connection_, L"jobs"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(Put(L"a"));
    EXPECT_EQ(GetLastError(), kErrorInternetConnectionAborted);
  }
  EXPECT_TRUE(CloseFtpHandle(connection_));
  EXPECT_EQ(peer.connections(), 1);
  EXPECT_EQ(peer.commands().back(), "CWD jobs");
}

TEST_F(FtpSessionTest, ADownloadThatIsCutReplacesNothing) {
  WriteNative(native("a"), "old");
  enum class Cut { kEnd, kReset, kRefusal };
  struct Case {
    Cut cut;
    ErrorCode error;
  };
  for (const Case& test : {Case{Cut::kEnd, kErrorInternetConnectionAborted},
                           Case{Cut::kReset, kErrorInternetConnectionReset},
                           Case{Cut::kRefusal, kErrorInternetExtendedError}}) {
    ScriptedFtpPeer peer;
    peer.On("RETR", [&test](Session& session, const std::string&) {
      session.Reply("150 here it comes");
      session.SendData(std::string(1 << 20, 'x'));
      if (test.cut == Cut::kReset) session.CutData();
      if (test.cut != Cut::kRefusal) return false;
      session.CloseData();
      session.Reply("426 something broke");
      return true;
    });
    ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
    EXPECT_FALSE(Get(L"a"));
    EXPECT_EQ(GetLastError(), test.error);
    CloseFtpHandle(connection_);
    EXPECT_EQ(ReadNative(native("a")), "old");
    EXPECT_EQ(ListNative(temp_.native()).size(), 2U);  // the product folder and the file
  }
}

// A server that stops answering, or does not come to the end of its answer, ends the call by the
// time-out that is meant for that wait.
void Drip(Session& session, const char* piece) {
  for (int i = 0; i < 300 && session.ReplyRaw(piece); ++i) {
    std::this_thread::sleep_for(milliseconds(100));
  }
}

struct Stall {
  const char* name;
  FtpTimeout which;
  const char* verb;
  void (*answer)(Session& session);  // before it stops
};

void PrintTo(const Stall& stall, std::ostream* out) { *out << stall.name; }

class FtpStallTest : public FtpSessionTest, public ::testing::WithParamInterface<Stall> {};

TEST_P(FtpStallTest, EndsByItsTimeout) {
  const Stall& stall = GetParam();
  ScriptedFtpPeer peer;
  peer.On(stall.verb, [&stall](Session& session, const std::string&) {
    stall.answer(session);
    if (stall.which == FtpTimeout::kDataSend || stall.which == FtpTimeout::kDataReceive) {
      session.AwaitDataReset();
    } else {
      session.Stall();
    }
    return false;
  });
  SetTimeouts(stall.which);
  const auto start = std::chrono::steady_clock::now();
  WriteNative(native("big"), "");
  std::filesystem::resize_file(native("big"), 64 << 20);
  EXPECT_FALSE(Connect(peer.port()) != kNoFtpHandle && Put(L"big") && Get(L"x"));
  EXPECT_EQ(GetLastError(), kErrorInternetTimeout);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  CloseFtpHandle(connection_);
  EXPECT_EQ(peer.connections(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Everywhere, FtpStallTest,
    ::testing::Values(
        Stall{"EndlessGreeting", FtpTimeout::kControlReceive, "",
              [](Session& s) { Drip(s, "220-wait\r\n"); }},
        Stall{"EndlessLine", FtpTimeout::kControlReceive, "TYPE", [](Session& s) { Drip(s, "2"); }},
        Stall{"EndlessReply", FtpTimeout::kControlReceive, "STOR",
              [](Session& s) { Drip(s, "150-wait\r\n"); }},
        Stall{"User", FtpTimeout::kControlReceive, "USER", [](Session&) {}},
        Stall{"WorkingDirectory", FtpTimeout::kControlReceive, "PWD", [](Session&) {}},
        Stall{"Passive", FtpTimeout::kControlReceive, "PASV", [](Session&) {}},
        Stall{"StoreData", FtpTimeout::kDataSend, "STOR",
              [](Session& s) {
                s.Reply("150 go on");
                s.TakeSomeData(1000);
              }},
        Stall{"StoreEnd", FtpTimeout::kControlReceive, "STOR",
              [](Session& s) {
                s.Reply("150 go on");
                s.TakeData();
              }},
        Stall{"RetrieveData", FtpTimeout::kDataReceive, "RETR",
              [](Session& s) {
                s.Reply("150 here it comes");
                s.SendData("a part");
              }}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(FtpSessionTest, AConnectionThatIsNotMadeEndsByItsTimeout) {
  const Listener server;
  listen(server.get(), 0);
  const int first = OpenTcpSocket();  // fills the queue
  ASSERT_TRUE(ConnectTcp(first, 0x7F000001, server.port(), milliseconds(5000)));
  SetTimeouts(FtpTimeout::kConnect);
  EXPECT_EQ(Connect(server.port()), kNoFtpHandle);
  EXPECT_EQ(GetLastError(), kErrorInternetTimeout);
  CloseTcpSocket(first);
}

// What is slow and goes on is not ended: each wait counts anew.
TEST_F(FtpSessionTest, WaitsCountAnewForEachPiece) {
  static constexpr auto kStep = milliseconds(350);
  ScriptedFtpPeer peer;
  for (const auto& [verb, reply] : {std::pair{"USER", "331 password?"}, std::pair{"PASS", "230 in"},
                                    std::pair{"PWD", "257 \"/\""}}) {
    peer.On(verb, [reply = reply](Session& session, const std::string&) {
      std::this_thread::sleep_for(kStep);
      session.Reply(reply);
      return true;
    });
  }
  peer.On("RETR", [](Session& session, const std::string&) {
    session.Reply("150 here it comes");
    for (int i = 0; i < 3; ++i) {
      session.SendData("piece");
      std::this_thread::sleep_for(kStep);
    }
    session.CloseData();
    session.Reply("226 that was it");
    return true;
  });
  for (const FtpTimeout which : kAllTimeouts) EXPECT_TRUE(SetFtpTimeout(internet_, which, 900));
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_TRUE(Get(L"a"));
  EXPECT_EQ(ReadNative(native("a")), "piecepiecepiece");
}

}  // namespace
}  // namespace vk::tq
