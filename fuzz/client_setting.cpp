// The client's settings. Input: a mode, and Client.ini. The reader makes directories: separators are
// taken out of the input, so that they all lie in the sandbox, which is the current folder meanwhile.
#include "settings/client_setting.h"

#include "fuzz/support.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

void CheckRanges(const CClientSetting& setting) {
  const auto is_within = [](int value, int least, int most) {
    return least <= value && value <= most;
  };
  Require(is_within(setting.ServiceSocket, 0, 65535) && is_within(setting.SocketBackLog, 1, 2000) &&
              is_within(setting.SharedPrinterTransRetry, 0, 255) &&
              is_within(setting.PrinterInfoFtpRetryInterval, 0, 60000) &&
              is_within(setting.FtpSizeCheck, 0, 3) && setting.FQDNTryCount >= 1 &&
              setting.SharedTimeout >= 0 && setting.SharedPCCardSystemCode.size() <= 4,
          "every value lies in its range");
}

class CurrentFolder {
 public:
  explicit CurrentFolder(const std::filesystem::path& folder) {
    std::filesystem::current_path(folder);
  }
  CurrentFolder(const CurrentFolder&) = delete;
  CurrentFolder& operator=(const CurrentFolder&) = delete;
  ~CurrentFolder() {
    std::error_code ignored;
    std::filesystem::current_path(old_, ignored);
  }

 private:
  std::filesystem::path old_ = std::filesystem::current_path();
};

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  const CurrentFolder folder(sandbox.Native(""));
  const int mode = input.Mode() == 1 ? 1 : 0;
  std::string bytes(input.Rest());
  for (char& c : bytes) c = c == '\\' || c == '/' ? '_' : c;
  sandbox.Write(sandbox.Config("Client.ini"), bytes);

  CClientSetting setting;
  const int result = setting.Read(mode);
  CheckRanges(setting);
  CClientSetting again;
  Require(again.Read(mode) == result && again.P2 == setting.P2 &&
              again.JobTransDir == setting.JobTransDir &&
              again.P1Secondary == setting.P1Secondary &&
              again.ClientIPAddress == setting.ClientIPAddress,
          "a second reading gives the same");
  const CString address = UpToNul(Wide(bytes.substr(0, 40)));
  Require(setting.WriteClientIP(address) == 1, "an address can be written");
  // Once in a while, since most of the time goes into making them.
  static unsigned inputs = 0;
  if (++inputs % 64 != 0) return;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(sandbox.Native(""))) {
    std::filesystem::remove_all(entry.path(), ignored);
  }
}
