#include "platform/ftp_session.h"

#include <fcntl.h>

#include "platform/error.h"
#include "support/scripted_ftp_peer.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using Session = ScriptedFtpPeer::Session;
using std::chrono::milliseconds;

class FtpSessionTest : public ProductTest {
 protected:
  ~FtpSessionTest() override { CloseFtpHandle(internet_); }

  bool Connect() {
    CloseFtpHandle(connection_);
    connection_ = ConnectFtp(internet_, L"127.0.0.1", peer_.port(), L"tester", L"secret");
    return connection_ != kNoFtpHandle;
  }
  bool Put(const wchar_t* name) { return PutFtpFile(connection_, path(name), name); }
  bool Get(const wchar_t* name) { return GetFtpFile(connection_, name, path(name)); }

  ScriptedFtpPeer peer_;
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
    peer_.On("PASV", [before = before, after = after](Session& session, const std::string&) {
      const std::uint16_t port = session.OpenPassive();
      return session.Reply(before + std::to_string(port / 256) + "," + std::to_string(port % 256) +
                           after);
    });
    ASSERT_TRUE(Connect());
    EXPECT_EQ(Put(L"a"), works) << before;
    EXPECT_TRUE(works || GetLastError() == kErrorInvalidData);
  }
}

TEST_F(FtpSessionTest, SpeaksToAnIpv6Peer) {
  std::optional<ScriptedFtpPeer> peer;
  try {
    peer.emplace(true);
  } catch (const std::runtime_error&) {
    GTEST_SKIP() << "no IPv6 on loopback";
  }
  WriteNative(native("a"), "bytes");
  connection_ = ConnectFtp(internet_, L"::1", peer->port(), L"tester", L"secret");
  EXPECT_TRUE(Put(L"a"));
  EXPECT_EQ(peer->file("a"), "bytes");
}

// It breaks the connection: nobody can tell what the server waits for. A broken one is not made
// anew: the directory would be another one.
TEST_F(FtpSessionTest, TakesNoReplyOfAnotherKind) {
  WriteNative(native("a"), "bytes");
  // From the last step to the first.
  const std::tuple<const char*, const char*, ErrorCode> cases[] = {
      {"CWD", "150 soon\r\n250 there", kErrorSuccess},
      {"CWD", "250-a\r\n550 b\r\n 250 no\r\n250-\r\n250 c", kErrorSuccess},
      {"STOR", "150 go on\r\n350 more", kErrorInvalidData},
      {"STOR", "226 stored", kErrorInvalidData},
      {"RNTO", "350 to what?", kErrorInvalidData},
      {"RNFR", "250 done", kErrorInvalidData},
      {"SIZE", "350 5", kErrorInvalidData},
      {"CWD", "2x0 no number", kErrorInvalidData},
      {"CWD", "421 you were idle", kErrorInternetExtendedError},
      {"CWD", "250 there\r\n421 you were idle", kErrorInternetConnectionAborted}};
  for (const auto& [verb, reply, error] : cases) {
    peer_.On(verb, reply);
    ASSERT_TRUE(Connect());
    SetLastError(kErrorSuccess);
    EXPECT_EQ(error == kErrorSuccess, SetFtpDirectory(connection_, L"a") &&
                                          FtpFileSize(connection_, L"a") &&
                                          RenameFtpFile(connection_, L"a", L"b") && Put(L"a"));
    EXPECT_EQ(GetLastError(), error) << reply;
    EXPECT_EQ(DeleteFtpFile(connection_, L"a"), error == kErrorSuccess);
  }
  EXPECT_EQ(peer_.connections(), 10);
}

TEST_F(FtpSessionTest, ADownloadThatIsCutReplacesNothing) {
  WriteNative(native("a"), "old");
  for (const ErrorCode error : {kErrorInternetConnectionAborted, kErrorInternetExtendedError}) {
    peer_.On("RETR", [error](Session& session, const std::string&) {
      session.Reply("150 here it comes");
      session.SendData(std::string(1 << 20, 'x'));
      session.CloseData();
      return error == kErrorInternetExtendedError && session.Reply("426 something broke");
    });
    ASSERT_TRUE(Connect());
    EXPECT_FALSE(Get(L"a"));
    EXPECT_EQ(GetLastError(), error);
    EXPECT_EQ(ReadNative(native("a")), "old");
  }
}

// What the server has of a file is broken off: an orderly end would leave the beginning there, in
// the place of the file that it had.
TEST_F(FtpSessionTest, EachWaitEndsByItsTimeout) {
  using enum FtpTimeout;
  const auto drip = [](Session& session) {
    while (session.ReplyRaw("150-wait\r\n")) std::this_thread::sleep_for(milliseconds(100));
  };
  // From the last step to the first: the wait, the command, whether the file is broken off, and
  // what is answered before the server stops.
  const std::tuple<FtpTimeout, const char*, bool, std::function<void(Session&)>> stalls[] = {
      {kDataReceive, "RETR", true, [](Session& s) { s.Reply("150 it comes"), s.SendData("a"); }},
      {kDataSend, "STOR", true, [](Session& s) { s.Reply("150 go on"), s.data()->Take(9); }},
      {kControlReceive, "STOR", false, [](Session& s) { s.Reply("150 go on"), s.TakeWholeData(); }},
      {kControlReceive, "STOR", true, [](Session&) {}},
      {kControlReceive, "STOR", true, drip},
      {kControlReceive, "", false, [](Session&) {}}};
  WriteNative(native("big"), "");
  std::filesystem::resize_file(native("big"), 64 << 20);
  Gate has_ended;
  for (const auto& stall : stalls) {
    SCOPED_TRACE(&stall - stalls);
    peer_.On(std::get<1>(stall), [&](Session& session, const std::string&) {
      const auto& [wait, verb, breaks_off, answer] = stall;
      answer(session);
      if (!breaks_off) session.AwaitEnd();
      if (!breaks_off || session.data()->AwaitReset()) has_ended.Open();
      return false;
    });
    for (const auto wait : {kConnect, kControlSend, kControlReceive, kDataSend, kDataReceive}) {
      const bool is_meant = wait == std::get<0>(stall);
      EXPECT_TRUE(SetFtpTimeout(internet_, wait, is_meant ? 300 : kNoFtpTimeout));
    }
    EXPECT_FALSE(Connect() && Put(L"big") && Get(L"x"));
    EXPECT_EQ(GetLastError(), kErrorInternetTimeout);
    CloseFtpHandle(connection_);
    EXPECT_TRUE(has_ended.Wait());
  }
}

// A writer waits for whoever reads the file.
TEST_F(FtpSessionTest, NoServerKeepsAFileFromBeingWritten) {
  const auto can_be_written = [&](const std::string& name) {
    const FileDescriptor file(open(native(name).c_str(), O_RDWR));
    return SetFileLock(file.get(), F_WRLCK);
  };
  peer_.On("TYPE", [&](Session& session, const std::string&) {
    EXPECT_TRUE(can_be_written("short"));
    return session.Reply("200 so be it");
  });
  peer_.On("STOR", [&](Session& session, const std::string& name) {
    session.Reply("150 go on");
    peer_.file(name) = session.TakeWholeData().value_or("");
    EXPECT_TRUE(can_be_written(name));
    return session.Reply("226 stored");
  });
  const std::string contents(std::size_t{512} * 1024, 'x');  // ends where a piece does
  WriteNative(native("short"), "old");
  WriteNative(native("long"), contents);
  ASSERT_TRUE(Connect());
  EXPECT_TRUE(Put(L"short") && Put(L"long"));
  EXPECT_EQ(peer_.file("short"), "old");
  EXPECT_TRUE(peer_.file("long") == contents);
}

}  // namespace
}  // namespace vk::tq::testing
