// Chapter 1. The settings of this PC and of the site.
#include <cstdio>
#include <fstream>

#include "road.h"
#include "settings/system_setting.h"
#include "storage/crypto.h"

namespace demo {
namespace {

using vk::tq::CByteArray;
using vk::tq::CCrypto;
using vk::tq::CSystemSetting;

// User and password stand in Client.ini as the digits of their cipher bytes.
std::string Enciphered(const std::wstring& plain) {
  CByteArray cipher;
  CCrypto().EncryptByTripleDesToByteArray(plain, cipher);
  std::string digits;
  for (const unsigned char byte : cipher) {
    char two[3];
    std::snprintf(two, sizeof two, "%02X", byte);
    digits += two;
  }
  return digits;
}

std::string WriteClientIni(const Road& road) {
  std::string text =
      "[Setting]\n; this PC\nSharedPC=0\nP1=127.0.0.1\nP2=" + Enciphered(kFtpUser) +
      "\nP3=" + Enciphered(kFtpPassword) +
      "\nP4=3\nServiceSocket=50514\nSocketBackLog=20000\nClientIPAddress=192.0.2.10\n"
      "EmgServerDir=/EMG\nPrinterInfoServerDir=PrinterInfo\n";
  for (const char* key :
       {"NemiInfoDir", "CertNemiInfoDir", "NemiManageDir", "EmgWorkDir", "EmgTransDir",
        "ServiceDataDir", "PrinterInfoWorkDir", "PrinterInfoTransDir"}) {
    text += std::string(key) + "=" + road.product.native(key) + "\n";
  }
  std::ofstream(road.product.file("config/Client.ini")) << text;
  return text;
}

}  // namespace

void ReadTheSettings(Road& road) {
  Chapter("1. What is set on this PC, and on this site");
  Show("Client.ini:", WriteClientIni(road));
  Expect(road.settings.Read(0) == 1, "the settings are good");
  Expect(road.settings.P2 == kFtpUser, "the FTP account is deciphered");
  Expect(road.settings.P3 == kFtpPassword, "and so is its password");
  Say("The library warned of every value that it replaced, and made the folders that were "
      "missing.");
  Say("Printer server " + Narrow(road.settings.P1) + ", FTP user " + Narrow(road.settings.P2) +
      ", backlog " + std::to_string(road.settings.SocketBackLog) + " in place of 20000.");
  road.log.ShowOnly("バックログ");

  const std::string rules = "13,10\n59,3,\"両面,白黒\"\n81,45\n86,60\n";
  std::ofstream(road.product.native("system.csv")) << rules;
  CSystemSetting site(road.product.path("system.csv").c_str(), CSystemSetting::modeRead);
  Expect(site.LoadFile() == 0, "the site's rules are read");
  Expect(site.GetNameTray(1) == L"両面,白黒", "the name of tray 1");
  Show("The site's rules:", rules);
  Say("Tray 1 is \"" + Narrow(site.GetNameTray(1)) + "\"; log-only jobs are watched for " +
      std::to_string(site.GetLocalTimeoutUnsentLogPrint()) + " minutes.");
  road.log.ShowLast(8);
}

}  // namespace demo
