// The settings of the client and of the site, and the display texts.
#include <algorithm>
#include <functional>
#include <type_traits>

#include "faults/operation.h"
#include "platform/path.h"
#include "platform/posix/profile_file.h"
#include "settings/client_setting.h"
#include "settings/client_setting_table.h"
#include "settings/langage_manager.h"
#include "settings/system_setting.h"

namespace vk::tq::testing {
namespace {

void HoldClientIni(Stage& stage) {
  std::string text =
      "[Thread]\nPrinterInfoCycle=7\n[Setting]\nAddIconRetry=5\nP1Secondary=10.0.0.2\n";
  text +=
      "ServerAutoSetting=1\nClientIPAddress=10.0.0.9\nEMSDir=" + ToUtf8(stage.path(L"work\\ems"));
  WriteNative(stage.product_native("config/Client.ini"), text + "\nP1=10.0.0.1\n");
  WriteNative(stage.product_native("PrintProcessor/config.ini"),
              "[Setting]\r\nNupSetting=1\r\n; kept\r\nNameTray1=old\r\n");
}

// The texts, without the NULs that a writer did not come to cut off.
Pieces ViewInis(Stage& stage) {
  Pieces texts;
  for (const char* const name : {"config/Client.ini", "PrintProcessor/config.ini"}) {
    const std::string text = internal::ReadProfileFile(stage.product_native(name)).value_or("none");
    texts.push_back(text.substr(0, text.find_last_not_of('\0') + 1));
  }
  return texts;
}

// Of more than a memory page, so that a second copy is written.
void HoldLongConfigIni(Stage& stage) {
  HoldClientIni(stage);
  std::string text = "[Setting]\r\nNameTray1=old\r\n";
  for (int i = 0; i < 500; ++i) text += "Key" + std::to_string(i) + "=a value\r\n";
  WriteNative(stage.product_native("PrintProcessor/config.ini"), text);
}

using Client = CClientSetting;

// An operation of a settings object, which gives a text when it reads one and else 1.
template <auto kOperation>
Report OnClient(Stage&) {
  Client setting;
  if constexpr (std::is_same_v<std::invoke_result_t<decltype(kOperation), Client&>, CString>) {
    return Reports(true, std::invoke(kOperation, setting));
  } else {
    return Reports(std::invoke(kOperation, setting) == 1);
  }
}

constexpr auto kReadFlag = [](Client& it) { return std::to_wstring(it.ReadSvIpGetAutoFlg()); };
constexpr auto kReadRetry = [](Client& it) { return std::to_wstring(it.ReadAddIconRetry()); };
constexpr auto kWriteLonger = [](Client& it) { return it.WritePrimPSIpAddr(L"a longer address"); };
constexpr auto kWriteShorter = [](Client& it) { return it.WritePrimPSIpAddr(L""); };
constexpr auto kWriteClientIp = [](Client& it) { return it.WriteClientIP(L"10.1.1.1"); };
constexpr auto kWriteNup = [](Client& it) { return it.WriteNupSetting(L"1,2,4"); };
constexpr auto kWriteToner = [](Client& it) { return it.WriteTonerSaveDisp(1); };
constexpr auto kWriteFont = [](Client& it) { return it.WriteFontImageDisp(1); };
constexpr auto kWriteTimer = [](Client& it) { return it.WriteSpoolingJobSkipTimer(77); };
constexpr auto kWriteRemnant = [](Client& it) { return it.WriteWorkaroundRemnantJob(77); };
constexpr auto kWriteTrays = [](Client& it) {
  return it.WriteTrayData(3, L"new 1", 4, L"new 2", 0, L"new 3");
};

Report ReadEmsDir(Stage&) {
  Client setting;
  CString directory;
  const bool is_done = setting.ReadEMSDir(directory) == 1;
  return Reports(is_done,
                 directory.substr(directory.size() - std::min<std::size_t>(3, directory.size())));
}

// Keys with values that are good, and one folder that is missing.
void HoldWholeClientIni(Stage& stage) {
  using namespace client_keys;
  std::string text = "[Thread]\nPrinterInfoCycle=7\n[Setting]\n";
  const auto add = [&](const wchar_t* name, const std::string& value) {
    text += ToUtf8(name) + "=" + value + "\n";
  };
  for (const ClientKey& row : kClientKeys) {
    if (const auto* number = std::get_if<NumberKey>(&row)) {
      add(number->key, std::to_string(number->accepted.least));
    } else if (const auto* required = std::get_if<RequiredTextKey>(&row)) {
      add(required->key, "00112233445566778899aabbccddeeff");
    } else if (const auto* directory = std::get_if<DirectoryKey>(&row)) {
      const bool is_missing = directory->key == std::wstring_view(L"NemiInfoDir");
      add(directory->key, ToUtf8(stage.path(is_missing ? L"work\\new" : L"work")));
    }
  }
  WriteNative(stage.product_native("config/Client.ini"), text);
  WriteNative(stage.product_native("PrintProcessor/config.ini"), "");
}

Report ReadWholeClientIni(Stage&) {
  CClientSetting setting;
  return Reports(setting.Read(1) == 1, setting.P1);
}

// ---- The site's settings, the display texts ----

void HoldSystemSettings(Stage& stage) {
  std::string text;
  for (int i = 0; i < 700; ++i) text += "1,1,\"text, with a comma\"\n2,0,other\n";
  WriteNative(stage.native("work/system.csv"), text + "86,17,\n");
}

Report LoadSystemSettings(Stage& stage) {
  const CString path = stage.WorkPath(L"system.csv");
  CSystemSetting setting(path.c_str(), CStdioFile::modeRead | CStdioFile::shareDenyNone);
  const bool is_done = setting.LoadFile() == 0;
  const Calm calm;
  return Reports(is_done, std::to_wstring(setting.GetLocalTimeoutUnsentAuthPrint()));
}

void HoldTexts(Stage& stage) {
  WriteNative(stage.native("work/lang.dat"), "101=a text that is longer than a short one\n");
}

Report LoadTexts(Stage& stage) {
  const CString path = stage.WorkPath(L"lang.dat");
  CLangageManager manager;
  stage.Made();
  return Reports(manager.GetHashTbl(path.c_str()) == 1);
}

}  // namespace

std::vector<Operation> SettingsOperations() {
  const Promise read = {L"CClientSetting::", 4, Throws::kForMemory};
  const Promise directory = read.Tells({120200600, 120200620, 120200640, 120200660});
  const Promise config = Promise{L"CClientSetting::Write", 5, Throws::kForMemory}.Sure(0).Torn();
  // Those that give a value have no way to tell of a failure.
  const Promise quiet = kNoLineButBadAlloc;
  const Promise client = quiet.Torn();
  const Promise trays = config.Tells({120200880});
  const Promise texts = {L"CLangageManager::GetHashTbl", 3};
  constexpr auto kReadAddress = &Client::ReadPrimPSIpAddr;
  return {
      {"ClientRead", HoldWholeClientIni, ReadWholeClientIni, read, ViewInis},
      {"ClientReadAddress", HoldClientIni, OnClient<kReadAddress>, quiet.Or(""), ViewInis},
      {"ClientReadFlag", HoldClientIni, OnClient<kReadFlag>, quiet.Or("0"), ViewInis},
      {"ClientReadRetry", HoldClientIni, OnClient<kReadRetry>, quiet.Or("100"), ViewInis},
      {"ClientReadEmsDir", HoldClientIni, ReadEmsDir, directory, ViewInis},
      {"ClientWriteAddress", HoldClientIni, OnClient<kWriteLonger>, client, ViewInis},
      {"ClientWriteShorter", HoldClientIni, OnClient<kWriteShorter>, client, ViewInis},
      {"ClientWriteClientIp", HoldClientIni, OnClient<kWriteClientIp>, client.Sure(0), ViewInis},
      {"ConfigTrays", HoldClientIni, OnClient<kWriteTrays>, trays, ViewInis},
      {"ConfigLong", HoldLongConfigIni, OnClient<kWriteTrays>, trays.Torn(false), ViewInis},
      {"ConfigNup", HoldClientIni, OnClient<kWriteNup>, config.Tells({120200910}), ViewInis},
      {"ConfigToner", HoldClientIni, OnClient<kWriteToner>, config.Tells({120200930}), ViewInis},
      {"ConfigFont", HoldClientIni, OnClient<kWriteFont>, config.Tells({120200960}), ViewInis},
      {"ConfigTimer", HoldClientIni, OnClient<kWriteTimer>, config.Tells({120200990}), ViewInis},
      {"ConfigRemnant", HoldClientIni, OnClient<kWriteRemnant>, config.Tells({120200990}),
       ViewInis},
      {"SystemLoad", HoldSystemSettings, LoadSystemSettings, quiet},
      {"Texts", HoldTexts, LoadTexts, texts.Tells({130213})},
  };
}

}  // namespace vk::tq::testing
