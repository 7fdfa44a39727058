// The settings of the client and of the site, and the display texts.
#include <algorithm>
#include <cstdio>

#include "faults/operation.h"
#include "platform/path.h"
#include "settings/client_setting.h"
#include "settings/client_setting_table.h"
#include "settings/langage_manager.h"
#include "settings/system_setting.h"

namespace vk::tq::testing {
namespace {

using Pieces = std::vector<std::string>;

void HoldClientIni(Stage& stage) {
  std::string text =
      "[Thread]\nPrinterInfoCycle=7\n[Setting]\nAddIconRetry=5\nP1Secondary=10.0.0.2\n";
  text +=
      "ServerAutoSetting=1\nClientIPAddress=10.0.0.9\nEMSDir=" + ToUtf8(stage.path(L"work\\ems"));
  WriteNative(stage.product_native("config/Client.ini"), text + "\nP1=10.0.0.1\n");
  WriteNative(stage.product_native("PrintProcessor/config.ini"),
              "[Setting]\r\nNupSetting=1\r\n; kept\r\nNameTray1=old\r\n");
}

Pieces ViewInis(Stage& stage) {
  return {ReadNative(stage.product_native("config/Client.ini")),
          ReadNative(stage.product_native("PrintProcessor/config.ini"))};
}

// An operation of a settings object, which gives a text when it has read one.
template <auto kOperation>
Report OnClient(Stage& stage) {
  CClientSetting setting;
  return kOperation(setting, stage);
}

constexpr auto kReadAddress = [](CClientSetting& setting, Stage&) {
  return Reports(true, setting.ReadPrimPSIpAddr());
};
constexpr auto kReadFlag = [](CClientSetting& setting, Stage&) {
  const int flag = setting.ReadSvIpGetAutoFlg();
  return Reports(true, flag == 1 ? L"1" : L"0");
};
constexpr auto kReadRetry = [](CClientSetting& setting, Stage&) {
  const int retry = setting.ReadAddIconRetry();
  return Reports(true, retry == 5 ? L"5" : L"100");
};
constexpr auto kReadEmsDir = [](CClientSetting& setting, Stage&) {
  CString directory;
  const bool is_done = setting.ReadEMSDir(directory) == 1;
  return Reports(is_done,
                 directory.substr(directory.size() - std::min<std::size_t>(3, directory.size())));
};
constexpr auto kWriteAddress = [](CClientSetting& setting, Stage&) {
  return Reports(setting.WritePrimPSIpAddr(L"a longer address than it was") == 1);
};
constexpr auto kWriteShorter = [](CClientSetting& setting, Stage&) {
  return Reports(setting.WritePrimPSIpAddr(L"") == 1);
};
constexpr auto kWriteClientIp = [](CClientSetting& setting, Stage&) {
  return Reports(setting.WriteClientIP(L"10.1.1.1") == 1);
};
constexpr auto kWriteTrays = [](CClientSetting& setting, Stage&) {
  return Reports(setting.WriteTrayData(3, L"new 1", 4, L"new 2", 0, L"new 3") == 1);
};
constexpr auto kWriteNup = [](CClientSetting& setting, Stage&) {
  return Reports(setting.WriteNupSetting(L"1,2,4") == 1);
};
constexpr auto kWriteTimer = [](CClientSetting& setting, Stage&) {
  return Reports(setting.WriteSpoolingJobSkipTimer(77) == 1);
};

// All keys, with values that are good, and one folder that is missing.
void HoldWholeClientIni(Stage& stage) {
  using namespace client_keys;
  std::string text = "[Thread]\nPrinterInfoCycle=7\n[Setting]\n";
  for (const ClientKey& row : kClientKeys) {
    const auto add = [&](const wchar_t* name, const std::string& value) {
      text += ToUtf8(name) + "=" + value + "\n";
    };
    if (const auto* number = std::get_if<NumberKey>(&row)) {
      add(number->key, std::to_string(number->accepted.least));
    } else if (const auto* flag = std::get_if<FlagKey>(&row)) {
      add(flag->key, "1");
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
  const bool is_done = setting.Read(1) == 1;
  return Reports(is_done, setting.P1);
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
  constexpr Throws kMemory = Throws::kForMemory;
  static constexpr wchar_t kLine[] = L"CClientSetting::";
  // The results of those that have no way to tell of a failure.
  const std::vector<std::string> empty = {""};
  return {
      {"ClientRead", HoldWholeClientIni, ReadWholeClientIni, ViewInis, kLine, 4, kMemory},
      {"ClientReadAddress", HoldClientIni, OnClient<kReadAddress>, ViewInis, nullptr, 0, kMemory,
       empty},
      {"ClientReadFlag", HoldClientIni, OnClient<kReadFlag>, ViewInis, nullptr, 0, kMemory, {"0"}},
      {"ClientReadRetry",
       HoldClientIni,
       OnClient<kReadRetry>,
       ViewInis,
       nullptr,
       0,
       kMemory,
       {"100"}},
      {"ClientReadEmsDir", HoldClientIni, OnClient<kReadEmsDir>, ViewInis, kLine, 4, kMemory},
      {"ClientWriteAddress", HoldClientIni, OnClient<kWriteAddress>, ViewInis, nullptr, 0, kMemory},
      {"ClientWriteShorter", HoldClientIni, OnClient<kWriteShorter>, ViewInis, nullptr, 0, kMemory},
      {"ClientWriteClientIp",
       HoldClientIni,
       OnClient<kWriteClientIp>,
       ViewInis,
       nullptr,
       0,
       kMemory,
       {},
       0},
      {"ClientWriteTrays",
       HoldClientIni,
       OnClient<kWriteTrays>,
       ViewInis,
       kLine,
       5,
       kMemory,
       {},
       0},
      {"ClientWriteNup", HoldClientIni, OnClient<kWriteNup>, ViewInis, kLine, 5, kMemory, {}, 0},
      {"ClientWriteTimer",
       HoldClientIni,
       OnClient<kWriteTimer>,
       ViewInis,
       kLine,
       5,
       kMemory,
       {},
       0},
      {"SystemLoad", HoldSystemSettings, LoadSystemSettings, nullptr, nullptr, 0, kMemory},
      {"Texts", HoldTexts, LoadTexts, nullptr, L"CLangageManager::", 3},
  };
}

}  // namespace vk::tq::testing
