#include "platform/ftp_session.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "platform/error.h"
#include "platform/file.h"
#include "support/ftp_client_test.h"
#include "support/scripted_ftp_peer.h"

namespace vk::tq::testing {
namespace {

using Session = ScriptedFtpPeer::Session;
using std::chrono::milliseconds;

class FtpSessionTest : public FtpClientTest {
 protected:
  ~FtpSessionTest() override { CloseFtpHandle(internet_); }

  FtpHandle Connect(std::uint16_t port, const wchar_t* host = L"127.0.0.1") {
    CloseFtpHandle(connection_);
    connection_ = ConnectFtp(internet_, host, port, L"tester", kSecret);
    return connection_;
  }
  // All waits but one, perhaps, last for some time.
  void SetTimeouts(std::uint32_t time, std::optional<FtpTimeout> but_for = {}) {
    using enum FtpTimeout;
    for (const auto which : {kConnect, kControlSend, kControlReceive, kDataSend, kDataReceive}) {
      EXPECT_TRUE(SetFtpTimeout(internet_, which, which == but_for ? 300 : time));
    }
  }
  bool Put(const wchar_t* name) { return PutFtpFile(connection_, path(name), name); }
  bool Get(const wchar_t* name) { return GetFtpFile(connection_, name, path(name)); }

  FtpHandle internet_ = OpenFtp(L"test");
  FtpHandle connection_ = kNoFtpHandle;
};

TEST_F(FtpSessionTest, FollowsThePassivePortButNoOtherHost) {
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"227 Entering Passive Mode (203,0,113,9,", ")", true},
      {"227 here 1,2: 127,0,0,1,", " go", true},
      {"227 (1127,0,0,1,", ")", false},
      {"227 (127,0,0,1,256,", ")", false}};
  WriteNative(native("a"), "bytes");
  for (const auto& [before, after, works] : cases) {
    SCOPED_TRACE(before);
    ScriptedFtpPeer peer;
    peer.On("PASV", [&before = before, &after = after](Session& session, const std::string&) {
      const std::uint16_t port = session.OpenPassive();
      session.Reply(before + std::to_string(port / 256) + "," + std::to_string(port % 256) + after);
      return true;
    });
    ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
    EXPECT_EQ(Put(L"a"), works);
    EXPECT_EQ(peer.file("a"), works ? "bytes" : "");
    EXPECT_TRUE(works || GetLastError() == kErrorInvalidData);
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
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"CWD", "150 soon\r\n150 sooner\r\n250 there", false},
      {"CWD", "2x0 no number", false},
      {"SIZE", "350 5", false},
      {"RNFR", "250 done", false},
      {"RNTO", "350 to what?", false},
      {"STOR", "226 stored", false},
      {"STOR", "150 go on\r\n350 more", false},
      {"CWD", "150 soon\r\n250 there", true},
      {"CWD", "250-a\r\n550 b\r\n 250 no\r\n250-\r\n250 c", true}};
  for (const auto& [verb, reply, works] : cases) {
    SCOPED_TRACE(reply);
    ScriptedFtpPeer peer;
    peer.On(verb, reply);
    ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
    EXPECT_EQ(works, SetFtpDirectory(connection_, L"a") && FtpFileSize(connection_, L"a") &&
                         RenameFtpFile(connection_, L"a", L"b") && Put(L"a"));
    if (works) continue;
    EXPECT_EQ(GetLastError(), kErrorInvalidData);
    EXPECT_FALSE(DeleteFtpFile(connection_, L"a"));
    EXPECT_EQ(GetLastError(), kErrorInternetConnectionAborted);
  }
}

// A connection that the server ends is not made anew: the directory would be another one.
TEST_F(FtpSessionTest, ABrokenConnectionStaysBroken) {
  ScriptedFtpPeer peer;
  peer.On("CWD", [](Session& session, const std::string&) {
    return session.Reply("250 there\r\n421 you were idle");
  });
  WriteNative(native("a"), "bytes");
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_TRUE(SetFtpDirectory(connection_, L"jobs"));
  EXPECT_FALSE(Put(L"a"));
  EXPECT_EQ(GetLastError(), kErrorInternetConnectionAborted);
  EXPECT_EQ(peer.connections(), 1);

  peer.On("USER", [](Session&, const std::string&) { return false; });
  EXPECT_EQ(Connect(peer.port()), kNoFtpHandle);
  EXPECT_EQ(GetLastError(), kErrorInternetConnectionAborted);
}

TEST_F(FtpSessionTest, ADownloadThatIsCutReplacesNothing) {
  WriteNative(native("a"), "old");
  for (const ErrorCode error : {kErrorInternetConnectionAborted, kErrorInternetConnectionReset,
                                kErrorInternetExtendedError}) {
    ScriptedFtpPeer peer;
    peer.On("RETR", [error](Session& session, const std::string&) {
      session.Reply("150 here it comes");
      session.SendData(std::string(1 << 20, 'x'));
      if (error == kErrorInternetConnectionReset) session.CutData();
      if (error != kErrorInternetExtendedError) return false;
      session.CloseData();
      session.Reply("426 something broke");
      return true;
    });
    ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
    EXPECT_FALSE(Get(L"a"));
    EXPECT_EQ(GetLastError(), error);
    EXPECT_EQ(ReadNative(native("a")), "old");
  }
}

// A server that stops answering, or does not come to the end of its answer, ends the call by the
// time-out that is meant for that wait.
void Drip(Session& session, const char* piece) {
  for (int i = 0; i < 300 && session.ReplyRaw(piece); ++i) {
    std::this_thread::sleep_for(milliseconds(100));
  }
}

TEST_F(FtpSessionTest, EachWaitEndsByItsTimeout) {
  using enum FtpTimeout;
  const struct {
    FtpTimeout which;
    const char* verb;
    std::function<void(Session&)> answer;  // before it stops
  } stalls[] = {
      {kControlReceive, "", [](Session& s) { Drip(s, "220-wait\r\n"); }},
      {kControlReceive, "STOR", [](Session& s) { Drip(s, "150-wait\r\n"); }},
      {kControlReceive, "USER", [](Session&) {}},
      {kControlReceive, "STOR", [](Session& s) { s.Reply("150 go on"), s.TakeData(); }},
      {kDataSend, "STOR", [](Session& s) { s.Reply("150 go on"), s.TakeSomeData(1000); }},
      {kDataReceive, "RETR", [](Session& s) { s.Reply("150 here it comes"), s.SendData("a"); }}};
  WriteNative(native("big"), "");
  std::filesystem::resize_file(native("big"), 64 << 20);
  for (const auto& stall : stalls) {
    SCOPED_TRACE(stall.verb);
    ScriptedFtpPeer peer;
    peer.On(stall.verb, [&stall](Session& session, const std::string&) {
      stall.answer(session);
      if (stall.which == kControlReceive) {
        session.Stall();
      } else {
        session.AwaitDataReset();
      }
      return false;
    });
    SetTimeouts(kNoFtpTimeout, stall.which);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Connect(peer.port()) != kNoFtpHandle && Put(L"big") && Get(L"x"));
    EXPECT_EQ(GetLastError(), kErrorInternetTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    CloseFtpHandle(connection_);
    EXPECT_EQ(peer.connections(), 1);
  }
}

// An orderly end would leave an empty file there, in the place of the one that it had.
TEST_F(FtpSessionTest, AnUploadWithoutAReplyIsBrokenOff) {
  std::promise<bool> is_reset;
  ScriptedFtpPeer peer;
  peer.On("STOR", [&](Session& session, const std::string&) {
    is_reset.set_value(session.AwaitDataReset());
    return false;
  });
  WriteNative(native("a"), "contents");
  SetTimeouts(kNoFtpTimeout, FtpTimeout::kControlReceive);
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_FALSE(Put(L"a"));
  EXPECT_EQ(is_reset.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

// A writer that finds the lock taken gives up after ten seconds.
TEST_F(FtpSessionTest, NoServerKeepsAFileFromBeingWritten) {
  const auto write = [&](const wchar_t* name) { return WriteFileInPlace(path(name), "new", 3); };
  ScriptedFtpPeer peer;
  peer.On("TYPE", [&](Session& session, const std::string&) {
    EXPECT_TRUE(write(L"short"));
    return session.Reply("200 so be it");
  });
  peer.On("STOR", [&](Session& session, const std::string& name) {
    session.Reply("150 go on");
    peer.file(name) = session.TakeData();
    EXPECT_TRUE(name == "short" || write(L"long"));
    return session.Reply("226 stored");
  });
  const std::string contents(std::size_t{512} * 1024, 'x');  // ends where a piece does
  WriteNative(native("short"), "old");
  WriteNative(native("long"), contents);
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_TRUE(Put(L"short"));
  EXPECT_TRUE(Put(L"long"));
  EXPECT_EQ(peer.file("short"), "old");
  EXPECT_TRUE(peer.file("long") == contents);
  EXPECT_TRUE(ReadNative(native("long")) == "new");
}

// What is slow and goes on is not ended: each wait counts anew.
TEST_F(FtpSessionTest, WaitsCountAnewForEachPiece) {
  ScriptedFtpPeer peer;
  peer.On("RETR", [](Session& session, const std::string&) {
    session.Reply("150 here it comes");
    for (int i = 0; i < 3; ++i) {
      session.SendData("piece");
      std::this_thread::sleep_for(milliseconds(400));
    }
    session.CloseData();
    return session.Reply("226 that was it");
  });
  SetTimeouts(700);
  ASSERT_NE(Connect(peer.port()), kNoFtpHandle);
  EXPECT_TRUE(Get(L"a"));
  EXPECT_EQ(ReadNative(native("a")), "piecepiecepiece");
}

}  // namespace
}  // namespace vk::tq::testing
