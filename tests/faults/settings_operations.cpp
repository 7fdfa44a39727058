// The settings, the display texts, the utilities, locks and log calls.
#include <unistd.h>

#include <filesystem>
#include <type_traits>

#include "faults/operation.h"
#include "foundation/file_lock.h"
#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/log_output.h"
#include "platform/posix/profile_file.h"
#include "settings/client_setting.h"
#include "settings/client_setting_table.h"
#include "settings/langage_manager.h"
#include "settings/system_setting.h"

namespace vk::tq::testing {
namespace {

using namespace client_keys;
using namespace std::string_literals;

// All keys without which a read fails, and a folder that is missing.
void Hold(Stage& stage) {
  std::string text =
      "[Thread]\nPrinterInfoCycle=7\n[Setting]\nAddIconRetry=5\nP1Secondary=10.0.0.2\n"
      "ServerAutoSetting=1\nClientIPAddress=10.0.0.9\nEMSDir=C:\\ems\n";
  for (const ClientKey& row : kClientKeys) {
    if (const auto* required = std::get_if<RequiredTextKey>(&row)) {
      text += ToUtf8(required->key) + "=00112233445566778899aabbccddeeff\n";
    } else if (const auto* directory = std::get_if<DirectoryKey>(&row)) {
      text += ToUtf8(directory->key) + "=C:\\new\n";
    }
  }
  WriteNative(stage.product_native("config/Client.ini"), text);
  WriteNative(stage.product_native("PrintProcessor/config.ini"),
              "[Setting]\r\nNupSetting=1\r\n; kept\r\nNameTray1=old\r\n");
}

void HoldLists(Stage& stage) {
  WriteNative(stage.native("registry.ini"),
              "[SOFTWARE\\Wow6432Node\\ORV-INC\\Velkorandia\\Tessaloquin\\Option]\n"
              "ImageLogIDDelimiter=#ID#\n");
  WriteNative(stage.product_native("config/lang.dat"), "101=a text that is longer than others\n");
  WriteNative(stage.product_native("config/system.csv"),
              "1,1,\"text, with a comma\"\n" + std::string(30000, '\n') + "86,17,\n");
}

// The texts, without the NULs that a writer did not come to cut off.
Pieces View(Stage& stage) {
  Pieces texts;
  for (const char* const name : {"config/Client.ini", "PrintProcessor/config.ini"}) {
    const std::string text = internal::ReadProfileFile(stage.product_native(name)).value_or("none");
    texts.push_back(text.substr(0, text.find_last_not_of('\0') + 1));
  }
  return texts;
}

// One that always gives a text, or gives 1 when it is done.
template <class Work>
Operation Op(const char* name, Promise promise, Work work) {
  const auto run = [work](Stage& stage) {
    if constexpr (std::is_same_v<decltype(work(stage)), CString>) {
      return Reports(true, work(stage));
    } else {
      return Reports(work(stage) == 1);
    }
  };
  return {name, Hold, run, View, promise};
}

using Client = CClientSetting;

Report ReadClient(Stage&) {
  Client setting;
  return Reports(setting.Read(1) == 1, setting.P1);
}

Report ReadEmsDir(Stage&) {
  CString directory;
  return Reports(Client().ReadEMSDir(directory) == 1, directory);
}

int WriteTrays(Stage&) { return Client().WriteTrayData(3, L"new 1", 4, L"new 2", 0, L"new 3"); }

// Of more than a memory page, so that a second copy is written.
void HoldLongConfigIni(Stage& stage) {
  Hold(stage);
  std::string text = "[Setting]\r\nNameTray1=old\r\n";
  for (int i = 0; i < 500; ++i) text += "Key" + std::to_string(i) + "=a value\r\n";
  WriteNative(stage.product_native("PrintProcessor/config.ini"), text);
}

Report LoadSystemSettings(Stage& stage) {
  const CString path = stage.config + L"\\system.csv";
  CSystemSetting setting(path.c_str(), CStdioFile::modeRead | CStdioFile::shareDenyNone);
  const bool is_done = setting.LoadFile() == 0;
  const Calm calm;
  return Reports(is_done, std::to_wstring(setting.GetLocalTimeoutUnsentAuthPrint()));
}

int LoadTexts(Stage& stage) {
  const CString path = stage.config + L"\\lang.dat";
  CLangageManager manager;
  stage.Made();
  return manager.GetHashTbl(path.c_str());
}

// ---- Utilities ----

CString GetIniString(Stage& stage) {
  return CUtil::GetIniString(L"Setting", L"P1", stage.config + L"\\Client.ini");
}

CString GetIniInt(Stage& stage) {
  const CString path = stage.config + L"\\Client.ini";
  return std::to_wstring(CUtil::GetIniInt(L"Setting", L"AddIconRetry", path, 7));
}

// Of the file, or of the folder that it lies in.
template <bool kIsFile>
Report SetAccess(Stage& stage) {
  const CString path = kIsFile ? stage.config + L"\\Client.ini" : stage.config;
  stage.Made();
  return Reports(CUtil::SetFileAccess(path, L"users", kIsFile ? 1 : 0) == 1);
}

// The modes: on no account may the owner lose the file.
Pieces ViewAccess(Stage& stage) {
  Pieces modes;
  for (const char* const name : {"config", "config/Client.ini"}) {
    const auto mode = std::filesystem::status(stage.product_native(name)).permissions();
    modes.push_back(std::to_string(static_cast<unsigned>(mode)));
  }
  return modes;
}

// The leader of the session that this process came with may have ended, or lie outside of its
// container. A process that leads a group, and cannot begin a session, has a shell that lives.
void BeginSession(Stage&) { setsid(); }

Report LogonTime(Stage&) { return Reports(!CUtil::GetLogonDateTimeFromLSA().empty()); }

Report Pattern(Stage&) {
  CString found, message;
  int error = 0;
  const CString text = L"job 4711 of 山田";
  return Reports(CUtil::ExtractPatternString(text, L"[0-9]+", found, error, message) == 1, found);
}

bool FindImageLogId(Stage&) {
  wchar_t text[100] = L"0123456789abcdef0123456789abcdef0123#ID#rest";
  wchar_t id[64];
  return CUtil::SepareteImaglogID(text, id) == 1 && text == L"rest"s && std::wcslen(id) == 36;
}

int ListAddresses(Stage&) {
  CStringArray addresses;
  return CUtil::GetIPList(addresses);
}

bool ListFiles(Stage& stage) {
  CStringArray names;
  return GetFileList2(stage.config, L"*.INI", names) == 1 && names[0] == L"Client.ini";
}

template <HANDLE (*kTake)(), HANDLE (*kRelease)(HANDLE)>
bool TakeAndRelease(Stage&) {
  HANDLE mutex = kTake();
  return mutex != nullptr && kRelease(mutex) == nullptr;
}

HANDLE TakeJobFiles() { return GetManageFileMutex(L"Global\\KITORA_QTL_JOB_MANAGE"); }

Report WriteLogLine(Stage& stage) {
  stage.Made();
  AppendProgramLog(5, L"a line of some length");
  return Reports(true);
}

// Where nothing is written of a line, the log says nothing of it either.
Pieces ViewLog(Stage& stage) {
  const std::string log = ViewFile(stage.native("work/log"))[0];
  return {log.ends_with("a line of some length\n") ? "there" : "missing"};
}

}  // namespace

std::vector<Operation> SettingsOperations() {
  constexpr Promise kTorn = {.is_torn = true};
  constexpr Promise kUnsure = {.sure_pieces = 0, .is_torn = true};
  return {
      {"ClientRead", Hold, ReadClient, View},
      {"ClientReadEmsDir", Hold, ReadEmsDir, View},
      // Those that give a value have no way to tell of a failure.
      Op("ClientReadAddress", {""}, [](Stage&) { return Client().ReadPrimPSIpAddr(); }),
      Op("ClientReadFlag", {"0"},
         [](Stage&) { return std::to_wstring(Client().ReadSvIpGetAutoFlg()); }),
      Op("ClientReadRetry", {"100"},
         [](Stage&) { return std::to_wstring(Client().ReadAddIconRetry()); }),
      Op("ClientWriteAddress", kTorn,
         [](Stage&) { return Client().WritePrimPSIpAddr(L"a longer address"); }),
      Op("ClientWriteShorter", kTorn, [](Stage&) { return Client().WritePrimPSIpAddr(L""); }),
      Op("ClientWriteClientIp", kUnsure,
         [](Stage&) { return Client().WriteClientIP(L"10.1.1.1"); }),
      Op("ConfigTrays", kUnsure, WriteTrays),
      {"ConfigLong", HoldLongConfigIni, Op("", {}, WriteTrays).run, View, {.sure_pieces = 0}},
      Op("ConfigNup", kUnsure, [](Stage&) { return Client().WriteNupSetting(L"1,2,4"); }),
      Op("ConfigToner", kUnsure, [](Stage&) { return Client().WriteTonerSaveDisp(1); }),
      Op("ConfigFont", kUnsure, [](Stage&) { return Client().WriteFontImageDisp(1); }),
      Op("ConfigTimer", kUnsure, [](Stage&) { return Client().WriteSpoolingJobSkipTimer(77); }),
      Op("ConfigRemnant", kUnsure, [](Stage&) { return Client().WriteWorkaroundRemnantJob(77); }),
      {"SystemLoad", HoldLists, LoadSystemSettings},
      {"Texts", HoldLists, Op("", {}, LoadTexts).run},
      Op("SpecialFolder", {}, [](Stage&) { return CUtil::GetSpecialFolderPath(26); }),
      Op("ExePath", {""}, [](Stage&) { return CUtil::GetExePath(); }),
      Op("ToUnicode", {""}, [](Stage&) { return CUtil::ConvertToUnicode(932, "\x93\xFA, ASCII"); }),
      Op("IniString", {""}, GetIniString),
      Op("IniInt", {"7"}, GetIniInt),
      Op("Version", {}, [](Stage&) { return CUtil::IsWin8orLater(nullptr); }),
      {"FileAccess", Hold, SetAccess<true>, ViewAccess},
      {"FolderAccess", Hold, SetAccess<false>, ViewAccess},
      {"LogonTime", BeginSession, LogonTime},
      {"Pattern", nullptr, Pattern},
      {"ImageLogId", HoldLists, Op("", {}, FindImageLogId).run},
      Op("IpList", {}, ListAddresses),
      Op("FileList", {}, ListFiles),
      Op("JobFilesLock", {}, TakeAndRelease<TakeJobFiles, ReleaseManageFileMutex>),
      Op("WhiteListLock", {},
         TakeAndRelease<GetPrinterWhiteListMutex, ReleasePrinterWhiteListMutex>),
      {"LogLine", nullptr, WriteLogLine, ViewLog, {.sure_pieces = 0}},
  };
}

}  // namespace vk::tq::testing
