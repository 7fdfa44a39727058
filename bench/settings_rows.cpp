// The settings of a PC and of the site.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "floor.h"
#include "harness.h"
#include "rows.h"
#include "settings/client_setting.h"
#include "settings/client_setting_table.h"
#include "settings/system_setting.h"
#include "storage/crypto.h"
#include "support/test_support.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

using namespace client_keys;

// A good value for a key of each shape.
struct GoodValue {
  const Workspace& workspace;

  std::string operator()(const NumberKey& key) const { return std::to_string(key.default_value); }
  std::string operator()(const FlagKey&) const { return "1"; }
  std::string operator()(const RequiredTextKey& key) const {
    return key.form == Form::kPlain ? "192.0.2.1" : Enciphered(L"account");
  }
  std::string operator()(const OptionalTextKey&) const { return "192.0.2.2"; }
  std::string operator()(const DirectoryKey& key) const {
    if (key.place == Place::kServer) return "/server";
    const std::string folder = workspace.native(testing::ToUtf8(key.default_name));
    std::filesystem::create_directory(folder);
    return folder;
  }
  std::string operator()(const IntegerKey& key) const { return std::to_string(key.default_value); }
  std::string operator()(const CardCodeKey&) const { return "1A2B"; }

  static std::string Enciphered(const wchar_t* text) {
    CByteArray bytes;
    CCrypto().EncryptByTripleDesToByteArray(text, bytes);
    return testing::ToHex({reinterpret_cast<const char*>(bytes.GetData()),
                           static_cast<std::size_t>(bytes.GetSize())});
  }
};

struct ClientIni : Workspace {
  ClientIni() {
    std::string setting = "[Setting]\r\n";
    std::string thread = "[Thread]\r\n";
    for (const ClientKey& key : kClientKeys) {
      std::visit(
          [&](const auto& shape) {
            bool is_thread = false;
            if constexpr (requires { shape.traits.section; }) {
              is_thread = std::wstring_view(shape.traits.section) == kThreadSection;
            }
            const std::string value = GoodValue{*this}(shape);
            (is_thread ? thread : setting) += testing::ToUtf8(shape.key) + "=" + value + "\r\n";
            if constexpr (std::is_same_v<std::decay_t<decltype(shape)>, DirectoryKey>) {
              if (shape.place == Place::kLocal) directories.push_back(testing::ToUtf8(shape.key));
            }
          },
          key);
    }
    testing::WriteNative(file(), setting + thread);
  }
  std::string file() const { return product("config/Client.ini"); }

  std::vector<std::string> directories;
};

std::unordered_map<std::string, std::string> ParseIni(const std::string& text) {
  std::unordered_map<std::string, std::string> values;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    std::string_view line(text.data() + begin, end - begin);
    begin = end + 1;
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    values.emplace(line.substr(0, equals), line.substr(equals + 1));
  }
  return values;
}

Contest ClientSettingContest() {
  auto ini = std::make_shared<ClientIni>();
  CClientSetting setting;
  Require(setting.Read(1) == 1 && setting.P2 == L"account", "the settings are not read");
  return {[ini] {
            CClientSetting read;
            Require(read.Read(1) == 1, "the settings are not read");
          },
          [ini] {
            const auto values = ParseIni(plain::ReadFile(ini->file()));
            for (const std::string& key : ini->directories) {
              struct stat status {};
              Require(stat(values.at(key).c_str(), &status) == 0, "no directory");
            }
          }};
}

// ---- The site's settings ----

Contest SystemSettingContest(int lines) {
  struct Fixture : Workspace {
    NullSink sink{0};
  };
  auto f = std::make_shared<Fixture>();
  std::string text;
  for (int i = 0; i < lines; ++i) {
    text += std::to_string(i % 120 + 1) + "," + std::to_string(i) + ",a text of the site\r\n";
  }
  testing::WriteNative(f->native("settings.csv"), text);
  return {[f] {
            CSystemSetting setting(f->path(L"settings.csv").c_str(), CStdioFile::modeRead);
            Require(setting.LoadFile() == 0, "not loaded");
          },
          [f] {
            const std::string bytes = plain::ReadFile(f->native("settings.csv"));
            std::vector<std::string_view> row;
            std::size_t fields = 0;
            std::size_t begin = 0;
            for (std::size_t i = 0; i < bytes.size(); ++i) {
              if (bytes[i] != ',' && bytes[i] != '\n') continue;
              row.emplace_back(bytes.data() + begin, i - begin);
              begin = i + 1;
              if (bytes[i] != '\n') continue;
              fields += row.size();
              row.clear();
            }
            benchmark::DoNotOptimize(fields);
          }};
}

}  // namespace

void AddSettingsRows() {
  AddRow({"settings", "CClientSetting::Read(1) of a full file",
          "one read, one plain parse, one stat for each directory", 2.0},
         ClientSettingContest);
  constexpr const char* kFloor = "one pass over the bytes that splits at commas";
  AddRow({"settings", "CSystemSetting::LoadFile of 10,000 lines", kFloor, 4.0},
         [] { return SystemSettingContest(10'000); });
  for (const int lines : {10, 100, 1'000, 10'000, 100'000}) {
    AddRow({"curve", "LoadFile by lines", kFloor, {}, 7, lines},
           [=] { return SystemSettingContest(lines); });
  }
}

}  // namespace vk::tq::bench
