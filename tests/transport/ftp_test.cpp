#include "transport/ftp.h"

#include <filesystem>
#include <functional>

#include "support/ftp_client_test.h"
#include "support/ftp_server.h"
#include "support/scripted_ftp_peer.h"

namespace vk::tq {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using Session = ScriptedFtpPeer::Session;

constexpr unsigned long kTimeout = 20000;
constexpr std::uint64_t kFourGiB = std::uint64_t{1} << 32;

LogLine Line(int level, int number, const wchar_t* operation, const std::wstring& text,
             std::optional<int> code = {}) {
  return {level, number, std::wstring(L"CFtp::") + operation, text, {}, code};
}

constexpr const wchar_t* kNoUpload = L"アップロードに失敗しました。";
const LogLine kClosed = Line(3, 130014, L"FtpDisConnect", L"FTPセッションを開放しました。");

void MakeSparse(const std::string& native, std::uint64_t size) {
  WriteNative(native, "");
  std::filesystem::resize_file(native, size);
}

// Against the real server.
class FtpTest : public FtpClientTest {
 protected:
  FtpTest() {
    UsePort(server_.port());
    std::filesystem::create_directories(native("out"));
    std::filesystem::create_directories(native("in"));
  }

  void Connect() {
    ASSERT_EQ(ftp_.FtpConnect(L"127.0.0.1", FtpServer::kUser, kSecret, kTimeout), 1);
  }

  FtpServer server_;
  const std::wstring out_ = path(L"out");
  const std::wstring in_ = path(L"in");
  CFtp ftp_;
};

TEST_F(FtpTest, MovesFilesOverOneConnection) {
  std::filesystem::create_directory(server_.home("jobs"));
  const std::string bytes("line\r\n\0\xff\x1a not text\n", 19);
  WriteNative(native("out/a.dat"), bytes);
  WriteNative(native("out/empty"), "");
  WriteNative(native("out/J.XML"), "<a/>");
  WriteNative(native("in/a.dat"), "an older and longer file that is here already");

  Connect();
  EXPECT_EQ(ftp_.IsConnect(), 1);
  EXPECT_EQ(ftp_.FtpChangeCurrentDirectory(L"jobs"), 1);
  EXPECT_EQ(ftp_.FtpPut(out_.c_str(), L"J.XML"), 1);
  EXPECT_EQ(ftp_.FtpGet(in_.c_str(), L"J.XML"), 1);
  EXPECT_EQ(ftp_.FtpPutAndVerify(out_.c_str(), L"a.dat", 2), 1);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          Line(3, 130020, L"SetFtpOption", L"FTP各種オプションの設定完了"),
          Line(2, 130021, L"FtpConnect", L"プリンタサーバ: FTP接続開始"),
          Line(2, 130022, L"FtpConnect", L"プリンタサーバ: FTP接続完了"),
          Line(3, 130009, L"FtpPut", L"FTPサーバに接続しました。"),
          Line(2, 130009, L"FtpPut",
               L"ファイルをUploadします。[local:" + path(L"out\\J.XML") + L"],[remote:J.xm_]"),
          Line(2, 130009, L"FtpPut", L"リモートファイルをrenameします。[old:J.xm_],[new:J.XML]"),
          Line(3, 130011, L"FtpPut", L"アップロードが完了しました。[J.XML]"),
          Line(3, 130005, L"FtpGet", L"FTPサーバに接続しました。"),
          Line(3, 130007, L"FtpGet", L"ダウンロードが完了しました。"),
          Line(3, 130011, L"FtpPutAndVerify",
               L"アップロードが完了しました。リトライ回数: [0]/[2]")));
  EXPECT_THAT(clock_.pauses, ElementsAre(25, 25));
  EXPECT_EQ(ftp_.FtpPut(out_.c_str(), L"empty"), 1);
  EXPECT_EQ(ftp_.FtpGet(in_.c_str(), L"a.dat"), 1);
  EXPECT_EQ(ftp_.FtpGet(in_.c_str(), L"empty"), 1);
  ClearLog();
  EXPECT_EQ(ftp_.FtpDisConnect(), 1);
  EXPECT_EQ(ftp_.IsConnect(), 0);
  EXPECT_THAT(log_.lines(), ElementsAre(kClosed));

  EXPECT_THAT(ListNative(server_.home("jobs")), ElementsAre("J.XML", "a.dat", "empty"));
  EXPECT_EQ(ReadNative(native("in/a.dat")), bytes);
  EXPECT_EQ(ReadNative(native("in/empty")), "");
  const std::vector<std::string> dialogue = server_.Dialogue();
  EXPECT_THAT(dialogue, Contains(HasSubstr("PASS")).Times(1));
  EXPECT_THAT(dialogue, Contains(HasSubstr("STOR J.xm_")));
  EXPECT_THAT(dialogue, Contains(HasSubstr("RNTO J.XML -> 250")));
}

TEST_F(FtpTest, TakesNamesToTheLetter) {
  Connect();
  std::vector<std::string> names = {" edge ", "-l",     "日本語 表.xml",   "50%41.dat",
                                    "~root",  "[a]*?.", "#1;type=a?x=y&z", "a+b,c@d:e|f"};
  for (const std::string& name : names) {
    const std::wstring wide = FromUtf8(name);
    WriteNative(native("out/" + name), name);
    EXPECT_EQ(ftp_.FtpPut(out_.c_str(), wide.c_str()), 1) << name;
    EXPECT_EQ(ftp_.FtpGet(in_.c_str(), wide.c_str()), 1);
    EXPECT_EQ(ReadNative(native("in/" + name)), name);
    EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, wide.c_str(), name.size()), 1);
  }
  std::ranges::sort(names);
  EXPECT_EQ(ListNative(server_.home()), names);
}

TEST_F(FtpTest, SendsNamesInTheAnsiCodePage) {
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  WriteNative(native("out/表.dat"), "x");
  Connect();
  EXPECT_EQ(ftp_.FtpPut(out_.c_str(), L"表.dat"), 1);
  EXPECT_THAT(ListNative(server_.home()), ElementsAre("\x95\x5c.dat"));
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"表.dat", 1), 1);
  // A character that the code page lacks would make it another file.
  WriteNative(native("out/한.dat"), "x");
  EXPECT_EQ(ftp_.FtpPut(out_.c_str(), L"한.dat"), 0);
  EXPECT_EQ(log_.lines(3).back().code, 123);
}

TEST_F(FtpTest, ComparesSizesBeyond32Bits) {
  MakeSparse(native("out/big"), kFourGiB + 5);
  MakeSparse(server_.home("big"), kFourGiB + 5);
  MakeSparse(server_.home("small"), 5);
  const std::wstring big = path(L"out\\big");
  Connect();
  EXPECT_EQ(ftp_.FtpSizeVerify(big, L"big"), 1);
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"big", kFourGiB + 5), 1);
  ClearLog();
  EXPECT_EQ(ftp_.FtpSizeVerify(big, L"small"), 0);
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"small", kFourGiB + 5), 0);
  EXPECT_EQ(ftp_.FtpSizeVerify(path(L"gone"), L"big"), 0);
  EXPECT_EQ(ftp_.FtpSizeVerify(big, L"gone"), 0);
  EXPECT_EQ(ftp_.IsConnect(), 1) << "a check that fails closes nothing";
  const wchar_t* const check = L"FtpSizeVerify";
  const wchar_t* const search = L"FtpSizeVerifyFindFirst";
  const std::wstring differs = L"FTP転送ファイルのサイズが異常です。file[";
  const std::wstring exception = L"サイズチェックで例外が発生しました。 [";
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          Line(4, 13130050, check, differs + big + L"] size[4294967301]byte->[5]byte"),
          Line(2, 13130065, search, L"FTP転送ファイルのサイズチェックを行います。"),
          Line(3, 13130050, search, differs + L"small] size[4294967301]byte->[5]byte"),
          Line(5, 130030, check, L"ファイルハンドルの取得に失敗しました。[" + path(L"gone") + L"]",
               2),
          Line(5, 13130060, check, exception + path(L"gone") + L"]", 2),
          Line(5, 130040, check, L"転送先ファイルハンドルの取得に失敗しました。[gone]", 12003),
          Line(5, 13130060, check, exception + big + L"]", 12003)));
}

TEST_F(FtpTest, ReportsFailuresAndCloses) {
  const wchar_t* const no_directory = L"リモートのカレントディレクトリ設定エラーが発生しました。";
  const std::pair<std::function<int()>, LogLine> cases[] = {
      {[&] { return ftp_.FtpChangeCurrentDirectory(L"missing"); },
       Line(3, 130008, L"FtpChangeCurrentDirectory", no_directory, 12003)},
      {[&] { return ftp_.FtpGet(in_.c_str(), L"missing"); },
       Line(3, 130006, L"FtpGet", L"ダウンロードに失敗しました。", 12003)},
      {[&] { return ftp_.FtpPut(out_.c_str(), L"missing.xml"); },
       Line(3, 130010, L"FtpPut", kNoUpload, 2)},
      {[&] { return ftp_.FtpPutAndVerify(out_.c_str(), L"missing", 9); },
       Line(3, 130010, L"FtpPutAndVerify", kNoUpload, 2)},
  };
  for (const auto& [operation, line] : cases) {
    Connect();
    EXPECT_EQ(operation(), 0);
    EXPECT_EQ(ftp_.IsConnect(), 0);
    EXPECT_EQ(log_.lines(3).back(), line);
  }
  EXPECT_THAT(server_.Dialogue(), Contains(HasSubstr("STOR")).Times(0));
}

TEST_F(FtpTest, ADownloadKeepsTheRightsOfTheFileAndFollowsNoLink) {
  WriteNative(server_.home("a"), "new");
  WriteNative(native("in/a"), "old");
  std::filesystem::permissions(native("in/a"), std::filesystem::perms(0640));
  WriteNative(native("elsewhere"), "planted");
  Connect();
  EXPECT_EQ(ftp_.FtpGet(in_.c_str(), L"a"), 1);
  EXPECT_EQ(ReadNative(native("in/a")), "new");
  EXPECT_EQ(std::filesystem::status(native("in/a")).permissions(), std::filesystem::perms(0640));

  std::filesystem::remove(native("in/a"));
  std::filesystem::create_symlink(native("elsewhere"), native("in/a"));
  EXPECT_EQ(ftp_.FtpGet(in_.c_str(), L"a"), 1);
  EXPECT_EQ(ReadNative(native("elsewhere")), "planted");
  EXPECT_FALSE(std::filesystem::is_symlink(native("in/a")));
  EXPECT_THAT(ListNative(native("in")), ElementsAre("a"));
}

// Two objects with the same handles: what one closes is closed for the other.
TEST_F(FtpTest, ACopyHoldsTheSameHandles) {
  Connect();
  {
    CFtp copy;
    copy = ftp_;
    EXPECT_EQ(copy.FtpChangeCurrentDirectory(L"/"), 1);
    EXPECT_EQ(ftp_.FtpDisConnect(), 1);
    EXPECT_EQ(copy.IsConnect(), 1);
    ClearLog();
    EXPECT_EQ(copy.FtpDisConnect(), 0);
    EXPECT_EQ(copy.IsConnect(), 0);
  }
  const wchar_t* const function = L"FtpDisConnect";
  const LogLine stuck =
      Line(3, 130013, function, L"インターネットサービス切断エラーが発生しました。", 6);
  EXPECT_THAT(log_.lines(), ElementsAre(Line(3, 130012, function,
                                             L"FTPセッションクローズエラーが発生しました。", 6),
                                        stuck, stuck));
}

// Against a server that does as it is told.
class ScriptedFtpTest : public FtpClientTest {
 protected:
  ScriptedFtpTest() { UsePort(peer_.port()); }

  int LogIn(unsigned long timeout = kTimeout) {
    return ftp_.FtpConnect(L"127.0.0.1", L"tester", kSecret, timeout);
  }
  void Connect() {
    ASSERT_EQ(LogIn(), 1);
    ClearLog();
  }
  int Put(const wchar_t* name) { return ftp_.FtpPut(temp_.path().c_str(), name); }
  LogLine last_line() const { return log_.lines().back(); }

  ScriptedFtpPeer peer_;
  CFtp ftp_;
};

TEST_F(ScriptedFtpTest, RepeatsARefusedRename) {
  WriteNative(native("j.xml"), "<a/>");
  for (const int refusals : {10, 11}) {
    const int result = refusals == 10 ? 1 : 0;
    ScriptedFtpPeer peer;
    UsePort(peer.port());
    peer.On("RNTO", [left = refusals](Session& session, const std::string&) mutable {
      return session.Reply(left-- > 0 ? "450 busy" : "250 done");
    });
    Connect();
    clock_.pauses.clear();
    EXPECT_EQ(Put(L"j.xml"), result);
    EXPECT_EQ(peer.count("RNFR"), 11);
    EXPECT_EQ(peer.count("DELE"), 1 - result);
    EXPECT_EQ(peer.connections(), 1);
    EXPECT_EQ(ftp_.IsConnect(), result);
    EXPECT_EQ(clock_.pauses, std::vector<std::uint32_t>(12, 25));
  }
  const std::wstring names = L"[old:j.xm_],[new:j.xml]";
  const auto lines = log_.lines();
  ASSERT_EQ(lines.size(), 2U + 11U + 2U);
  EXPECT_EQ(lines[2].message, L"リモートファイルをrenameします。" + names);
  EXPECT_EQ(lines[3].message, L"リモートファイルを再度renameします。" + names);
  EXPECT_EQ(lines[13],
            Line(5, 130009, L"FtpPut", L"リモートファイルをrenameできませんでした。" + names));
  EXPECT_EQ(lines[14], Line(3, 130010, L"FtpPut", kNoUpload, 12003));

  // On a connection that is broken nothing is repeated.
  peer_.On("RNFR", [](Session&, const std::string&) { return false; });
  UsePort(peer_.port());
  Connect();
  clock_.pauses.clear();
  EXPECT_EQ(Put(L"j.xml"), 0);
  EXPECT_THAT(clock_.pauses, ElementsAre(25, 25)) << "one in front of the only try, one behind";
  EXPECT_EQ(last_line().code, 12030);
  EXPECT_EQ(peer_.count("RNFR"), 1);
  EXPECT_EQ(peer_.connections(), 1);
}

// The server closes the data connection before it has all; its reply tells why. What it kept is
// deleted over the same control connection.
TEST_F(ScriptedFtpTest, DeletesWhatAFailedUploadLeft) {
  MakeSparse(native("big.dat"), 64 << 20);
  for (const bool cuts : {true, false}) {  // or only stops reading
    ScriptedFtpPeer peer;
    UsePort(peer.port());
    peer.On("STOR", [cuts](Session& session, const std::string&) {
      session.Reply("150 go on");
      session.TakeSomeData(1000);
      if (cuts) session.CutData();
      return session.Reply("552 disk full");
    });
    Connect();
    EXPECT_EQ(Put(L"big.dat"), 0);
    EXPECT_EQ(last_line(), Line(3, 130010, L"FtpPut", kNoUpload, 12003));
    EXPECT_EQ(peer.commands().at(peer.commands().size() - 2), "DELE big.dat");
    EXPECT_EQ(peer.connections(), 1);
    EXPECT_EQ(ftp_.IsConnect(), 0);
  }
}

TEST_F(ScriptedFtpTest, UploadsUntilTheSizeIsRight) {
  peer_.On("SIZE", "213 99");
  WriteNative(native("a"), "x");
  const auto count_line = [](const wchar_t* counts) {
    return Line(3, 130011, L"FtpPutAndVerify",
                L"アップロードが失敗しました。リトライ回数: " + std::wstring(counts));
  };
  Connect();
  EXPECT_EQ(ftp_.FtpPutAndVerify(temp_.path().c_str(), L"a", 3), 0);
  EXPECT_EQ(peer_.count("STOR"), 3);
  EXPECT_EQ(log_.lines(4).size(), 3U);
  EXPECT_EQ(last_line(), count_line(L"[3]/[3]"));
  EXPECT_EQ(ftp_.FtpPutAndVerify(temp_.path().c_str(), L"a", 0), 0);
  EXPECT_EQ(last_line(), count_line(L"[1]/[0]"));
  EXPECT_EQ(ftp_.IsConnect(), 1);
  // An upload that fails ends it, and leaves on the server what an earlier one brought there.
  WriteNative(native("gone"), "x");
  peer_.On("SIZE", [&](Session& session, const std::string&) {
    std::filesystem::remove(native("gone"));
    return session.Reply("213 99");
  });
  EXPECT_EQ(ftp_.FtpPutAndVerify(temp_.path().c_str(), L"gone", 3), 0);
  EXPECT_EQ(peer_.count("STOR"), 5);
  EXPECT_EQ(peer_.count("DELE"), 0);
  EXPECT_EQ(last_line(), Line(3, 130010, L"FtpPutAndVerify", kNoUpload, 2));
  EXPECT_EQ(ftp_.IsConnect(), 0);
}

TEST_F(ScriptedFtpTest, ReportsALogInThatFails) {
  const struct {
    const char* verb;
    const char* reply;
    int code;
  } cases[] = {
      {"USER", "530 no such user", 12013},
      {"PASS", "530-sorry\r\n530 wrong", 12014},
      {"PASS", "332 an account, too", 12015},
      {"", "421 not now", 12003},
      {"", "SSH-2.0-server", 13},
  };
  for (const auto& test : cases) {
    ScriptedFtpPeer peer;
    UsePort(peer.port());
    peer.On(test.verb, test.reply);
    ClearLog();
    EXPECT_EQ(LogIn(), 0);
    EXPECT_EQ(ftp_.IsConnect(), 0);
    EXPECT_EQ(log_.lines().size(), 4U);
    EXPECT_EQ(last_line(), Line(3, 130003, L"FtpConnect", L"FTPサーバ接続エラー発生", test.code));
  }
}

TEST_F(ScriptedFtpTest, CallsNobodyWithWhatCannotBeSent) {
  const CString longer_than_a_label = CString(64, L'a') + L".invalid";
  const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
  const struct {
    const wchar_t* host;
    const wchar_t* user;
    const wchar_t* password;
    int code;
  } cases[] = {
      {L"", L"tester", kSecret, 12007},
      {L"user@127.0.0.1/x", L"tester", kSecret, 12007},
      {longer_than_a_label.c_str(), L"tester", kSecret, 12007},  // the resolver refuses it itself
      {L"한", L"tester", kSecret, 12007},  // a character that the code page lacks
      {L"127.0.0.1", L"한", kSecret, 12013},
      {L"127.0.0.1", L"tester\r\nDELE b", kSecret, 12013},  // a command of its own
      {L"127.0.0.1", L"tester", L"x\r\nDELE b", 12014},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(ftp_.FtpConnect(test.host, test.user, test.password, kTimeout), 0);
    EXPECT_EQ(last_line().code, test.code);
  }
  EXPECT_EQ(peer_.connections(), 0);
  const Listener deaf(false, true);
  UsePort(deaf.port());
  EXPECT_EQ(LogIn(), 0);
  EXPECT_EQ(last_line().code, 12029);
}

TEST_F(ScriptedFtpTest, ConnectsWithAnyTimeOutButNothing) {
  EXPECT_EQ(LogIn(0), 0);
  const wchar_t* text = L"FTP通信オプション設定でエラーが発生しました。";
  EXPECT_THAT(log_.lines(), ElementsAre(Line(3, 130015, L"SetFtpOption", text, 87),
                                        Line(3, 130002, L"FtpConnect", text, 87)));
  EXPECT_EQ(peer_.connections(), 0);
  // More than the waits can hold is no limit, not what is left of it in 32 bits.
  EXPECT_EQ(LogIn(kFourGiB), 1);
  EXPECT_EQ(LogIn(), 1) << "another connection in place of the first one";
  EXPECT_EQ(peer_.count("QUIT"), 1);
  EXPECT_EQ(ftp_.FtpChangeCurrentDirectory(L"x"), 1);
}

TEST_F(ScriptedFtpTest, AnObjectWithoutAConnectionFailsEverywhere) {
  WriteNative(native("a"), "x");
  const std::function<int()> operations[] = {
      [&] { return ftp_.FtpGet(L"", L"a"); },
      [&] { return Put(L"a"); },
      [&] { return ftp_.FtpChangeCurrentDirectory(nullptr); },
      [&] { return ftp_.FtpSizeVerify(path(L"a"), nullptr); },
      [&] { return ftp_.FtpSizeVerifyFindFirst(nullptr, L"a", 0); },
  };
  for (const auto& operation : operations) {
    EXPECT_EQ(operation(), 0);
    EXPECT_EQ(last_line().code, 6);
  }
  EXPECT_EQ(ftp_.FtpDisConnect(), 1);
  EXPECT_EQ(last_line(), kClosed);
}

TEST_F(ScriptedFtpTest, TakesTheSizeFromTheListing) {
  struct Case {
    const char* reply;  // a refusal, or the listing
    const wchar_t* failure = nullptr;
    int code = 0;
  };
  const std::string long_reply = "550 " + std::string(300, 'x');
  const Case cases[] = {
      {"total 1\r\n-rw-r--r--   1 user  group  6000000000 Nov 24 14:29 a b\r\n"},
      {"-rw-r--r-- 1 Jan 1000 6000000000 Jan  1  2026 a b\n"},
      {"lrwxrwxrwx 1 u 6000000000 2026-11-24 14:29 a b -> c\r\n"},
      {"11-24-26  02:29PM           6000000000 a b\r\n"},
      {"drwxr-xr-x 2 u g 6000000000 Nov 24 14:29 a b\r\n11-24-26  02:29PM <DIR> a b\r\n"
       "-rw-r--r-- 1 u g 6000000000 Nov 24 14:29  a b\r\nnonsense\r\n",
       L"、およびエラー情報の取得に失敗しました。ファイル[a b], エラー[18]", 18},
      {"550 no \xe8\xa1\xa8", L"の取得に失敗しました。ファイル[a b], エラー[550(550 no 表)]", 550},
      {"550 geheim secret is not here", L"の取得に失敗しました。ファイル[a b], エラー[550(550)]",
       550},
      {long_reply.c_str(), L"、およびエラー情報の取得に失敗しました。ファイル[a b], エラー[122]",
       122},
  };
  std::string reply;
  peer_.On("LIST", [&reply](Session& session, const std::string&) {
    return reply.starts_with("550 ") ? session.Reply(reply) : session.Give(reply);
  });
  Connect();
  for (const Case& test : cases) {
    SCOPED_TRACE(test.reply);
    reply = test.reply;
    EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"a b", 6000000000), test.code == 0 ? 1 : 0);
    if (test.code == 0) continue;
    EXPECT_EQ(last_line(), Line(3, 130040, L"FtpSizeVerifyFindFirst",
                                L"転送先ファイル情報" + std::wstring(test.failure), test.code));
  }
  EXPECT_EQ(ftp_.IsConnect(), 1);
}

// What is listed of the current directory is another file than one of that name elsewhere.
TEST_F(ScriptedFtpTest, LooksForAPathWhereItLeads) {
  peer_.On("LIST", [](Session& session, const std::string& name) {
    return session.Give("-rw------- 1 me 5 2026-11-24 14:29 " +
                        std::string(name.empty() ? "a b" : "a"));
  });
  Connect();
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"sub/a", 5), 1);
  EXPECT_EQ(ftp_.FtpSizeVerifyFindFirst(nullptr, L"sub/a b", 5), 0);
  EXPECT_EQ(last_line().code, 18);
}

TEST_F(ScriptedFtpTest, SendsNothingForANameThatWouldBeACommand) {
  WriteNative(native("a"), "x");
  const std::wstring names[] = {L"", L"a\r\nDELE b", L"a\nb", L"a\rb"};
  for (const std::wstring& name : names) {
    Connect();
    const std::size_t before = peer_.commands().size();
    EXPECT_EQ(ftp_.FtpChangeCurrentDirectory(name.c_str()), 0);
    EXPECT_EQ(last_line().code, 123);
    EXPECT_EQ(peer_.commands().size(), before + 1);
    EXPECT_EQ(peer_.commands().back(), "QUIT");
  }
}

TEST(FtpPathTest, MakesALocalPath) {
  EXPECT_EQ(CFtp::MakeLocalPath(L"C:\\out", L"a.xml"), L"C:\\out\\a.xml");
  EXPECT_EQ(CFtp::MakeLocalPath(L"C:/out/", L"a.xml"), L"C:\\out\\a.xml");
  EXPECT_EQ(CFtp::MakeLocalPath(nullptr, nullptr), L"");
}

}  // namespace
}  // namespace vk::tq
