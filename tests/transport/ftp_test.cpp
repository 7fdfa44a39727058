#include "transport/ftp.h"

#include <filesystem>
#include <functional>

#include "platform/service_table.h"
#include "support/ftp_server.h"
#include "support/scripted_ftp_peer.h"
#include "support/test_clock.h"

namespace vk::tq::testing {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;
using Session = ScriptedFtpPeer::Session;

constexpr const wchar_t* kSecret = FtpServer::kPassword;
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;
const std::string kNoUpload = "3 130010 CFtp::FtpPut アップロードに失敗しました。 = ";

void MakeSparse(const std::string& native, std::uint64_t size) {
  WriteNative(native, "");
  std::filesystem::resize_file(native, size);
}

// Against a server on a loopback port, without real pauses.
template <class Server>
class FtpTestOf : public ProductTest {
 protected:
  FtpTestOf() { std::filesystem::create_directory(native("in")); }
  void TearDown() override { ClearLog(); }

  // The password must be in none of the lines.
  void ClearLog() {
    EXPECT_THAT(log_.texts(), Each(Not(HasSubstr("geheim"))));
    log_.Clear();
  }
  int LogIn(unsigned long timeout = 20000) {
    return ftp_.FtpConnect(L"127.0.0.1", L"tester", kSecret, timeout);
  }
  void Connect() {
    ASSERT_EQ(LogIn(), 1);
    ClearLog();
    clock_.pauses.clear();
  }
  int Put(const wchar_t* name) { return ftp_.FtpPut(temp_.path().c_str(), name); }
  int Get(const wchar_t* name) { return ftp_.FtpGet(in_.c_str(), name); }
  std::string last_line() const { return log_.texts().back(); }
  std::optional<int> last_code() const { return log_.lines().back().code; }

  const std::wstring in_ = path(L"in");
  TestClock clock_;
  ScopedClock use_clock_{clock_};
  Server server_;
  ScopedServicePort port_{Service::kFtpControl, server_.port()};
  CFtp ftp_;
};
using FtpTest = FtpTestOf<FtpServer>;
using ScriptedFtpTest = FtpTestOf<ScriptedFtpPeer>;
using LyingFtpTest = ScriptedFtpTest;

TEST_F(FtpTest, MovesFilesOverOneConnection) {
  std::filesystem::create_directory(server_.home("jobs"));
  const std::string bytes("line\r\n\0\xff\x1a not text\n", 19);
  WriteNative(native("a.dat"), bytes);
  WriteNative(native("J.XML"), "");
  WriteNative(native("in/a.dat"), "an older and longer file that is here already");
  EXPECT_EQ(LogIn(), 1);
  EXPECT_EQ(ftp_.FtpChangeCurrentDirectory(L"jobs"), 1);
  EXPECT_EQ(Put(L"J.XML"), 1);
  EXPECT_EQ(ftp_.FtpPutAndVerify(temp_.path().c_str(), L"a.dat", 2), 1);
  EXPECT_EQ(Get(L"a.dat"), 1);
  EXPECT_EQ(ftp_.IsConnect(), 1);
  EXPECT_EQ(ftp_.FtpDisConnect(), 1);
  EXPECT_EQ(ftp_.IsConnect(), 0);
  EXPECT_THAT(
      log_.texts(),
      ElementsAre(
          "3 130020 CFtp::SetFtpOption FTP各種オプションの設定完了",
          "2 130021 CFtp::FtpConnect プリンタサーバ: FTP接続開始",
          "2 130022 CFtp::FtpConnect プリンタサーバ: FTP接続完了",
          "3 130009 CFtp::FtpPut FTPサーバに接続しました。",
          "2 130009 CFtp::FtpPut ファイルをUploadします。[local:" + ToUtf8(path(L"J.XML")) +
              "],[remote:J.xm_]",
          "2 130009 CFtp::FtpPut リモートファイルをrenameします。[old:J.xm_],[new:J.XML]",
          "3 130011 CFtp::FtpPut アップロードが完了しました。[J.XML]",
          "3 130011 CFtp::FtpPutAndVerify アップロードが完了しました。リトライ回数: [0]/[2]",
          "3 130005 CFtp::FtpGet FTPサーバに接続しました。",
          "3 130007 CFtp::FtpGet ダウンロードが完了しました。",
          "3 130014 CFtp::FtpDisConnect FTPセッションを開放しました。"));
  EXPECT_THAT(clock_.pauses, ElementsAre(25, 25));
  EXPECT_THAT(ListNative(server_.home("jobs")), ElementsAre("J.XML", "a.dat"));
  EXPECT_EQ(ReadNative(native("in/a.dat")), bytes);
}

TEST_F(FtpTest, TakesNamesToTheLetterAndInTheAnsiCodePage) {
  Connect();
  const auto send = [&](const std::string& name) {
    const std::wstring wide = FromUtf8(name);
    WriteNative(native(name), name);
    EXPECT_EQ(Put(wide.c_str()) + Get(wide.c_str()), 2) << name;
    EXPECT_EQ(ReadNative(native("in/" + name)), name);
    EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, wide.c_str(), name.size()), 1);
  };
  for (const char* name : {" edge ", "-l", "日本語 表.xml", "50%41.dat", "[a]*?."}) send(name);
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  send("表.dat");
  EXPECT_THAT(ListNative(server_.home()),
              ElementsAre(" edge ", "-l", "50%41.dat", "[a]*?.", "\x95\x5c.dat", "日本語 表.xml"));
}

TEST_F(FtpTest, ComparesSizesBeyond32Bits) {
  MakeSparse(native("big"), kFourGiB + 5);
  MakeSparse(server_.home("big"), kFourGiB + 5);
  MakeSparse(server_.home("small"), 5);
  const std::wstring big = path(L"big");
  const std::wstring gone = path(L"gone");
  Connect();
  EXPECT_EQ(ftp_.FtpSizeVerify(big, L"big"), 1);
  EXPECT_EQ(ftp_.FtpSizeVerify(big, L"small"), 0);
  EXPECT_EQ(ftp_.FtpSizeVerify(gone, L"big"), 0);
  EXPECT_EQ(ftp_.FtpSizeVerify(big, L"gone"), 0);
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"big", kFourGiB + 5), 1);
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"small", kFourGiB + 5), 0);
  EXPECT_EQ(ftp_.IsConnect(), 1) << "a check that fails closes nothing";
  const std::string differs = "FTP転送ファイルのサイズが異常です。file[";
  const std::string sizes = "] size[4294967301]byte->[5]byte";
  const std::string exception =
      "5 13130060 CFtp::FtpSizeVerify サイズチェックで例外が発生しました。 [";
  const std::string search =
      "2 13130065 CFtp::FtpSizeVerifyFindFirst FTP転送ファイルのサイズチェックを行います。";
  EXPECT_THAT(log_.texts(),
              ElementsAre("4 13130050 CFtp::FtpSizeVerify " + differs + ToUtf8(big) + sizes,
                          "5 130030 CFtp::FtpSizeVerify ファイルハンドルの取得に失敗しました。[" +
                              ToUtf8(gone) + "] = 2",
                          exception + ToUtf8(gone) + "] = 2",
                          "5 130040 CFtp::FtpSizeVerify "
                          "転送先ファイルハンドルの取得に失敗しました。[gone] = 12003",
                          exception + ToUtf8(big) + "] = 12003", search, search,
                          "3 13130050 CFtp::FtpSizeVerifyFindFirst " + differs + "small" + sizes));
}

TEST_F(FtpTest, ReportsFailuresAndCloses) {
  const std::tuple<std::function<int()>, std::string, std::string> cases[] = {
      {[&] { return ftp_.FtpChangeCurrentDirectory(L"missing"); },
       "3 130008 CFtp::FtpChangeCurrentDirectory "
       "リモートのカレントディレクトリ設定エラーが発生しました。 = ",
       "12003"},
      {[&] { return Get(L"missing"); },
       "3 130006 CFtp::FtpGet ダウンロードに失敗しました。 = ", "12003"},
      {[&] { return Put(L"missing.xml"); }, kNoUpload, "2"},
      {[&] { return ftp_.FtpPutAndVerify(in_.c_str(), L"missing", 9); },
       "3 130010 CFtp::FtpPutAndVerify アップロードに失敗しました。 = ", "2"},
  };
  for (const auto& [operation, line, code] : cases) {
    EXPECT_EQ(operation(), 0) << "without a connection";
    EXPECT_EQ(last_line(), line + "6");
    Connect();
    EXPECT_EQ(operation(), 0);
    EXPECT_EQ(last_line(), line + code);
    EXPECT_EQ(ftp_.IsConnect(), 0);
  }
  EXPECT_EQ(ftp_.FtpDisConnect(), 1);
  EXPECT_THAT(server_.Dialogue(), Not(Contains(HasSubstr("STOR"))));
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

TEST_F(ScriptedFtpTest, RepeatsARefusedRename) {
  WriteNative(native("j.xml"), "<a/>");
  const std::string again = "2 130009 CFtp::FtpPut リモートファイルを再度renameします。";
  const std::string given_up = "5 130009 CFtp::FtpPut リモートファイルをrenameできませんでした。";
  const std::string names = "[old:j.xm_],[new:j.xml]";
  const std::tuple<int, int, std::string> cases[] = {
      {10, 10, "3 130011 CFtp::FtpPut アップロードが完了しました。[j.xml]"},
      {11, 10, kNoUpload + "12003"},
      {-1, 0, kNoUpload + "12030"}};  // the connection breaks: nothing is repeated
  for (const auto& [refusals, repeats, line] : cases) {
    server_.On("RNTO", [left = refusals](Session& session, const std::string&) mutable {
      return left >= 0 && session.Reply(left-- > 0 ? "450 busy" : "250 done");
    });
    Connect();
    EXPECT_EQ(Put(L"j.xml"), refusals == 10 ? 1 : 0);
    EXPECT_EQ(ftp_.IsConnect(), refusals == 10 ? 1 : 0);
    // One in front of each try, and one behind the last.
    EXPECT_EQ(clock_.pauses.size(), repeats + 2U);
    EXPECT_THAT(log_.texts(), Contains(again + names).Times(repeats));
    EXPECT_THAT(log_.texts(), Contains(given_up + names).Times(refusals == 11 ? 1 : 0));
    EXPECT_EQ(last_line(), line);
  }
  EXPECT_EQ(server_.count("DELE j.xm_"), 1);
}

// The server breaks the data off before it has all; its reply tells why. What it kept is deleted
// over the same control connection.
TEST_F(ScriptedFtpTest, DeletesWhatAFailedUploadLeft) {
  MakeSparse(native("big.dat"), 64 << 20);
  server_.On("STOR", [](Session& session, const std::string&) {
    session.Reply("150 go on");
    session.TakeSomeData();
    session.CutData();
    return session.Reply("552 disk full");
  });
  Connect();
  EXPECT_EQ(Put(L"big.dat"), 0);
  EXPECT_EQ(last_line(), kNoUpload + "12003");
  EXPECT_EQ(server_.count("DELE big.dat"), 1);
  EXPECT_EQ(server_.connections(), 1);
  EXPECT_EQ(ftp_.IsConnect(), 0);
}

TEST_F(ScriptedFtpTest, UploadsUntilTheSizeIsRight) {
  WriteNative(native("a"), "x");
  server_.On("SIZE", [&](Session& session, const std::string&) {
    return session.Reply(server_.count("STOR") == 6 ? "213 1" : "213 99");
  });
  Connect();
  for (const std::uint8_t most : std::initializer_list<std::uint8_t>{3, 0, 3}) {
    ftp_.FtpPutAndVerify(temp_.path().c_str(), L"a", most);
  }
  const std::string line = "3 130011 CFtp::FtpPutAndVerify アップロードが";
  EXPECT_THAT(log_.texts(), IsSupersetOf({line + "失敗しました。リトライ回数: [3]/[3]",
                                          line + "失敗しました。リトライ回数: [1]/[0]",
                                          line + "完了しました。リトライ回数: [1]/[3]"}));
  EXPECT_EQ(server_.count("STOR"), 6);
  EXPECT_EQ(server_.count("DELE"), 0);
}

TEST_F(ScriptedFtpTest, ReportsALogInThatFails) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"PASS", "530-sorry\r\n530 wrong", 12014},
      {"PASS", "332 an account, too", 12015},
      {"USER", "530 no such user", 12013},
      {"", "421 not now", 12003},
      {"", "SSH-2.0-server", 13},
  };
  for (const auto& [verb, reply, code] : cases) {
    server_.On(verb, reply);
    EXPECT_EQ(LogIn(), 0);
    EXPECT_EQ(ftp_.IsConnect(), 0);
    EXPECT_EQ(last_line(),
              "3 130003 CFtp::FtpConnect FTPサーバ接続エラー発生 = " + std::to_string(code));
  }
  const Listener deaf(true);
  const ScopedServicePort port(Service::kFtpControl, deaf.port());
  EXPECT_EQ(LogIn(), 0);
  EXPECT_EQ(last_code(), 12029);
}

TEST_F(ScriptedFtpTest, CallsNobodyWithWhatCannotBeSent) {
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, int> cases[] = {
      {L"user@127.0.0.1/x", L"tester", kSecret, 12007},
      {L"127.0.0.1", L"한", kSecret, 12013},  // a character that the code page lacks
      {L"127.0.0.1", L"tester\r\nDELE b", kSecret, 12013},
      {L"127.0.0.1", L"tester", L"x\r\nDELE b", 12014}};
  for (const auto& [host, user, password, code] : cases) {
    EXPECT_EQ(ftp_.FtpConnect(host, user, password, 20000), 0);
    EXPECT_EQ(last_code(), code);
  }
  EXPECT_EQ(LogIn(0), 0);
  const std::string text = "FTP通信オプション設定でエラーが発生しました。 = 87";
  EXPECT_THAT(log_.texts(), IsSupersetOf({"3 130015 CFtp::SetFtpOption " + text,
                                          "3 130002 CFtp::FtpConnect " + text}));
  EXPECT_EQ(server_.connections(), 0);
}

TEST_F(ScriptedFtpTest, TakesTheSizeFromTheListing) {
  const std::string kLine = "3 130040 CFtp::FtpSizeVerifyFindFirst 転送先ファイル情報";
  const std::string unknown = "、およびエラー情報の取得に失敗しました。ファイル[a b], エラー";
  const std::string known = "の取得に失敗しました。ファイル[a b], エラー";
  // A listing or a refusal, and what the line says of it.
  const std::pair<std::string, std::string> cases[] = {
      {"total 1\r\n-rw-r--r-- 1 Jan 1000 6000000000 Jan  1  2026 a b\n", ""},
      {"lrwxrwxrwx 1 u 6000000000 2026-11-24 14:29 a b -> c\r\n", ""},
      {"11-24-26  02:29PM           6000000000 a b\r\n", ""},
      {"11-24-26  02:29PM <DIR> a b\r\n-rw-r--r-- 1 u g 6000000000 Nov 24 14:29  a b\r\n",
       unknown + "[18] = 18"},
      {"550 no \xe8\xa1\xa8", known + "[550(550 no 表)] = 550"},
      {"550 geheim secret is not here", known + "[550(550)] = 550"},
      {"550 " + std::string(300, 'x'), unknown + "[122] = 122"},
  };
  std::string reply;
  server_.On("LIST", [&reply](Session& session, const std::string&) {
    return reply.starts_with("550 ") ? session.Reply(reply) : session.Give(reply);
  });
  Connect();
  for (const auto& [answer, failure] : cases) {
    reply = answer;
    EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"a b", 6000000000), failure.empty() ? 1 : 0);
    EXPECT_TRUE(failure.empty() || last_line() == kLine + failure) << last_line();
  }
  // What is listed of the current directory is another file than one of that name elsewhere.
  reply = "11-24-26  02:29PM 5 a b";
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"sub/a b", 5), 0);
}

TEST_F(ScriptedFtpTest, SendsNothingForANameThatWouldBeACommand) {
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  // The last one holds a character that the code page lacks, and would be another file's.
  for (const wchar_t* name : {L"", L"a\r\nDELE b", L"a\nb", L"a\rb", L"한"}) {
    Connect();
    EXPECT_EQ(ftp_.FtpChangeCurrentDirectory(name), 0);
    EXPECT_EQ(last_code(), 123);
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
    EXPECT_FALSE(LogIn(kFourGiB) == 1 && ftp_.FtpSizeVerifyFindFirst(nullptr, L"a", 1) == 1);
    EXPECT_EQ(last_code(), code) << verb;
  }
}

}  // namespace
}  // namespace vk::tq::testing
