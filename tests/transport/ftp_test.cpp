#include "transport/ftp.h"

#include "platform/service_table.h"
#include "servers/ftp_server.h"
#include "support/scripted_ftp_peer.h"
#include "support/test_clock.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using Session = ScriptedFtpPeer::Session;

constexpr const wchar_t* kSecret = servers::FtpServer::kPassword;
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;

void MakeSparse(const std::string& native, std::uint64_t size) {
  WriteNative(native, "");
  std::filesystem::resize_file(native, size);
}

// Against a server on a loopback port, without real pauses.
template <class Server>
class FtpTestOf : public ProductTest {
 protected:
  FtpTestOf() { std::filesystem::create_directory(native("in")); }
  // The password must be in none of the lines.
  void TearDown() override {
    Tell(0);
    EXPECT_EQ(told_.find("geheim"), std::string::npos) << told_;
  }

  // With the pauses that the call made.
  void Tell(int result) {
    std::string text = std::to_string(result) + (ftp_.IsConnect() != 0 ? " connected" : "");
    for (const std::uint32_t pause : clock_.pauses) text += " " + std::to_string(pause);
    ProductTest::Tell(text);
    clock_.pauses.clear();
  }
  int LogIn(unsigned long timeout = 20000) {
    return ftp_.FtpConnect(L"127.0.0.1", L"tester", kSecret, timeout);
  }
  void Connect() {
    ASSERT_EQ(LogIn(), 1);
    log_.Clear();
  }
  int Put(const wchar_t* name) { return ftp_.FtpPut(temp_.path().c_str(), name); }
  int Get(const wchar_t* name) { return ftp_.FtpGet(path(L"in").c_str(), name); }
  int PutAndVerify(const wchar_t* name, unsigned char most) {
    return ftp_.FtpPutAndVerify(temp_.path().c_str(), name, most);
  }
  int Find(const wchar_t* name, std::uint64_t size) {
    return ftp_.FtpSizeVerifyFindFirst(nullptr, name, size);
  }
  // Of a call that fails.
  std::optional<int> ErrorOf(int result) const {
    return result == 0 ? log_.lines().back().code : std::nullopt;
  }

  TestClock clock_;
  ScopedClock use_clock_{clock_};
  Server server_;
  ScopedServicePort port_{Service::kFtpControl, server_.port()};
  CFtp ftp_;
};
using FtpTest = FtpTestOf<servers::FtpServer>;
using ScriptedFtpTest = FtpTestOf<ScriptedFtpPeer>;
using LyingFtpTest = ScriptedFtpTest;

// ftp_log.txt has what they tell.
TEST_F(FtpTest, EachOperationTellsWhatItDoes) {
  std::filesystem::create_directory(server_.home("jobs"));
  const std::string bytes("line\r\n\0\xff\x1a not text\n", 19);
  WriteNative(native("a.dat"), bytes);
  WriteNative(native("J.XML"), "");
  WriteNative(native("in/a.dat"), "an older and longer file that is here already");
  Tell(LogIn());
  Tell(ftp_.FtpChangeCurrentDirectory(L"jobs"));
  Tell(Put(L"J.XML"));
  Tell(PutAndVerify(L"a.dat", 2));
  Tell(Get(L"a.dat"));
  EXPECT_EQ(ReadNative(native("in/a.dat")), bytes);
  EXPECT_THAT(ListNative(server_.home("jobs")), ElementsAre("J.XML", "a.dat"));

  // Sizes beyond 32 bits.
  MakeSparse(native("big"), kFourGiB + 5);
  MakeSparse(server_.home("jobs/big"), kFourGiB + 5);
  MakeSparse(server_.home("jobs/small"), 5);
  Tell(ftp_.FtpSizeVerify(path(L"big"), L"big"));
  Tell(ftp_.FtpSizeVerify(path(L"big"), L"small"));
  Tell(ftp_.FtpSizeVerify(path(L"gone"), L"big"));
  Tell(ftp_.FtpSizeVerify(path(L"big"), L"gone"));
  Tell(Find(L"big", kFourGiB + 5));
  Tell(Find(L"small", kFourGiB + 5));
  // Two objects with the same handles: what one closes is closed for the other.
  CFtp copy;
  copy = ftp_;
  Tell(ftp_.FtpDisConnect());
  Tell(copy.FtpDisConnect());

  const std::function<int()> failures[] = {
      [&] { return ftp_.FtpChangeCurrentDirectory(L"missing"); }, [&] { return Get(L"missing"); },
      [&] { return Put(L"missing.xml"); }, [&] { return PutAndVerify(L"missing", 9); }};
  for (const auto& fails : failures) {
    Tell(fails());  // without a connection
    Connect();
    Tell(fails());
  }
  EXPECT_EQ(told_, ReadNative(TQ_TEST_DATA "/ftp_log.txt"));
}

TEST_F(FtpTest, TakesNamesToTheLetterAndInTheAnsiCodePage) {
  Connect();
  const auto send = [&](const std::string& name) {
    const std::wstring wide = FromUtf8(name);
    WriteNative(native(name), name);
    EXPECT_EQ(Put(wide.c_str()) + Get(wide.c_str()), 2) << name;
    EXPECT_EQ(ReadNative(native("in/" + name)), name);
    EXPECT_EQ(Find(wide.c_str(), name.size()), 1);
  };
  for (const char* name : {" edge ", "-l", "日本語 表.xml", "50%41.dat", "[a]*?."}) send(name);
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  send("表.dat");
  EXPECT_THAT(ListNative(server_.home()),
              ElementsAre(" edge ", "-l", "50%41.dat", "[a]*?.", "\x95\x5c.dat", "日本語 表.xml"));
}

TEST_F(FtpTest, ADownloadKeepsTheRightsOfTheFileAndFollowsNoLink) {
  WriteNative(server_.home("a"), "new");
  WriteNative(native("in/a"), "old");
  std::filesystem::permissions(native("in/a"), std::filesystem::perms(0640));
  WriteNative(native("elsewhere"), "planted");
  WriteNative(server_.home("link"), "new");
  std::filesystem::create_symlink(native("elsewhere"), native("in/link"));
  Connect();
  EXPECT_EQ(Get(L"a") + Get(L"link"), 2);
  EXPECT_EQ(std::filesystem::status(native("in/a")).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(ReadNative(native("in/a")) + ReadNative(native("in/link")), "newnew");
  EXPECT_EQ(ReadNative(native("elsewhere")), "planted");
  EXPECT_THAT(ListNative(native("in")), ElementsAre("a", "link"));
}

// ftp_failures_log.txt has what is told of refusals, from the last step to the first.
TEST_F(ScriptedFtpTest, EachRefusalIsTold) {
  std::string reply;
  server_.On("LIST", [&reply](Session& session, const std::string&) {
    return reply.starts_with("550 ") ? session.Reply(reply) : session.Give(reply);
  });
  Connect();
  for (const std::string& listing :
       {"total 1\r\n-rw-r--r-- 1 Jan 1000 6000000000 Jan  1  2026 a b\n"s,
        "11-24-26  02:29PM <DIR> a b\r\n-rw-r--r-- 1 u g 6000000000 Nov 24 14:29  a b\r\n"s,
        "550 no \xe8\xa1\xa8"s, "550 geheim secret is not here"s, "550 "s + std::string(300, 'x'),
        "lrwxrwxrwx 1 u 6000000000 2026-11-24 14:29 a b -> c\r\n"s,
        "11-24-26  02:29PM           6000000000 a b\r\n"s}) {
    reply = listing;
    Tell(Find(L"a b", 6000000000));
  }
  // What is listed of the current directory is another file than one of that name elsewhere.
  Tell(Find(L"sub/a b", 6000000000));

  WriteNative(native("a"), "x");
  server_.On("SIZE", [&](Session& session, const std::string&) {
    return session.Reply(server_.count("STOR") == 6 ? "213 1" : "213 99");
  });
  Tell(PutAndVerify(L"a", 3));
  Tell(PutAndVerify(L"a", 0));
  Tell(PutAndVerify(L"a", 3));
  EXPECT_EQ(server_.count("DELE"), 0);

  WriteNative(native("j.xml"), "<a/>");
  for (const int refusals : {10, 11, -1}) {  // at last the connection breaks
    server_.On("RNTO", [left = refusals](Session& session, const std::string&) mutable {
      return left >= 0 && session.Reply(left-- > 0 ? "450 busy" : "250 done");
    });
    Connect();
    Tell(Put(L"j.xml"));
  }
  EXPECT_EQ(server_.count("DELE j.xm_"), 1);

  // The server breaks the data off before it has all; its reply tells why. What it kept is deleted.
  MakeSparse(native("big"), 64 << 20);
  server_.On("STOR", [](Session& session, const std::string&) {
    session.Reply("150 go on");
    session.data()->Take(9);
    session.data()->ResetOnClose();
    session.CloseData();
    return session.Reply("552 disk full");
  });
  Connect();
  Tell(Put(L"big"));
  EXPECT_EQ(server_.count("DELE big"), 1);

  for (const auto& [verb, answer] : {std::pair("PASS", "530-sorry\r\n530 wrong"),
                                     {"PASS", "332 an account, too"},
                                     {"USER", "530 no such user"},
                                     {"", "421 not now"},
                                     {"", "SSH-2.0-server"}}) {
    server_.On(verb, answer);
    Tell(LogIn());
  }
  const Listener deaf(true);
  const ScopedServicePort port(Service::kFtpControl, deaf.port());
  Tell(LogIn());
  Tell(LogIn(0));
  EXPECT_EQ(told_, ReadNative(TQ_TEST_DATA "/ftp_failures_log.txt"));
}

// What would be a command of its own, or holds a character that the code page lacks.
TEST_F(ScriptedFtpTest, SendsNothingForANameThatWouldBeACommand) {
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  const wchar_t* const host = L"127.0.0.1";
  EXPECT_EQ(ErrorOf(ftp_.FtpConnect(L"user@127.0.0.1/x", L"tester", kSecret, 20000)), 12007);
  EXPECT_EQ(ErrorOf(ftp_.FtpConnect(host, L"한", kSecret, 20000)), 12013);
  EXPECT_EQ(ErrorOf(ftp_.FtpConnect(host, L"tester\r\nDELE b", kSecret, 20000)), 12013);
  EXPECT_EQ(ErrorOf(ftp_.FtpConnect(host, L"tester", L"x\r\nDELE b", 20000)), 12014);
  EXPECT_EQ(server_.connections(), 0);
  for (const wchar_t* name : {L"", L"a\r\nDELE b", L"a\nb", L"a\x7F", L"한"}) {
    Connect();
    EXPECT_EQ(ErrorOf(ftp_.FtpChangeCurrentDirectory(name)), 123);
    EXPECT_EQ(server_.count("CWD") + server_.count("DELE"), 0);
  }
}

// Nothing but the amount ends it: no wait ends at all.
TEST_F(LyingFtpTest, AFloodEnds) {
  const std::tuple<std::string, const char*, int> cases[] = {
      {"LIST", "-rw-r--r-- 1 u g 1 Nov 24 14:29 b\r\n", 13},
      {"PASV", "222222222222", 12030},
      {"", "220-more\r\n", 13}};
  for (const auto& [verb, line, code] : cases) {
    std::string piece;
    for (int i = 0; i < 1000; ++i) piece += line;
    server_.On(verb, [piece, is_listing = verb == "LIST"](Session& session, const std::string&) {
      if (is_listing) session.Reply("150 here it comes");
      for (int i = 0; i < 10'000; ++i) {
        is_listing ? session.SendData(piece) : static_cast<void>(session.ReplyRaw(piece));
      }
      session.CloseData();
      return session.Reply("226 the end");
    });
    EXPECT_EQ(ErrorOf(LogIn(kFourGiB) == 1 && Find(L"a", 1) == 1), code) << verb;
  }
}

}  // namespace
}  // namespace vk::tq::testing
