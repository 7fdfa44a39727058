// Servers that lie in ways that the folders' own tests do not show.
#include <chrono>

#include "platform/error.h"
#include "platform/ftp_session.h"
#include "support/ftp_client_test.h"
#include "support/scripted_ftp_peer.h"

namespace vk::tq::testing {
namespace {

using Session = ScriptedFtpPeer::Session;
using std::chrono::seconds;
using std::chrono::steady_clock;

class LyingFtpTest : public FtpClientTest {
 protected:
  // Asks for the size in the listing; the error that it ends with.
  ErrorCode ListedSizeOf(ScriptedFtpPeer& peer) {
    const auto start = steady_clock::now();
    SetLastError(kErrorSuccess);
    const FtpHandle internet = OpenFtp(L"test");
    const FtpHandle connection =
        ConnectFtp(internet, L"127.0.0.1", peer.port(), L"tester", kSecret);
    std::uint64_t size = 0;
    EXPECT_TRUE(connection == kNoFtpHandle || FindFtpFile(connection, L"a", size) == kNoFtpHandle);
    const ErrorCode error = GetLastError();
    EXPECT_LT(steady_clock::now() - start, seconds(100));
    CloseFtpHandle(internet);
    return error;
  }
};

TEST_F(LyingFtpTest, AFloodOfRepliesEnds) {
  for (const std::string verb : {"", "PASV"}) {
    const std::string bytes = verb.empty() ? "220-more\r\n" : std::string(8192, '2');
    ScriptedFtpPeer peer;
    peer.On(verb, [&](Session& session, const std::string&) {
      // Until the client goes. Bounded, or a client that stays would hang the test.
      for (int i = 0; i < 1'000'000 && session.ReplyRaw(bytes);) ++i;
      return false;
    });
    EXPECT_NE(kErrorSuccess, ListedSizeOf(peer)) << verb;
  }
}

TEST_F(LyingFtpTest, AFloodOfAListingEnds) {
  ScriptedFtpPeer peer;
  peer.On("LIST", [](Session& session, const std::string&) {
    session.Reply("150 here it comes");
    std::string lines;
    for (int i = 0; i < 2'500'000; ++i) lines += "-rw-r--r-- 1 u g 1 Nov 24 14:29 b\r\n";
    session.SendData(lines);
    session.Reply("426 it was broken off");
    return true;
  });
  EXPECT_EQ(kErrorInvalidData, ListedSizeOf(peer));
}

}  // namespace
}  // namespace vk::tq::testing
