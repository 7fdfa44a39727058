// Language files. Input: the file.
#include <map>

#include "fuzz/support.h"
#include "settings/langage_manager.h"

namespace vk::tq {

// The table stays until the process ends; here each input gets a new one.
class LangageManagerPeer {
 public:
  static std::size_t Size() { return CLangageManager::Messages().size(); }
  static void Clear() { CLangageManager::Messages().clear(); }
};

}  // namespace vk::tq

using namespace vk::tq;
using namespace vk::tq::fuzzing;

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  static CLangageManager manager;
  LangageManagerPeer::Clear();
  const std::string_view bytes = input.Rest();
  sandbox.Write(sandbox.Native("texts"), bytes);
  Require(manager.GetHashTbl(sandbox.Path("texts").c_str()) == 1, "any file can be loaded");

  std::map<std::wstring, std::wstring> expected;
  while (!input.IsEmpty()) {
    std::string_view line = input.Line();
    if (line.ends_with('\r')) line.remove_suffix(1);
    line = line.substr(0, line.find('\0'));
    const std::size_t separator = line.find('=');
    if (separator == line.npos || separator == 0) continue;
    expected.try_emplace(Wide(line.substr(0, separator)), Wide(line.substr(separator + 1)));
  }
  Require(LangageManagerPeer::Size() == expected.size(), "each key is there once");
  for (const auto& [key, value] : expected) {
    Require(CLangageManager::GetDispMessage(key.c_str()) == value, "a key gives its first text");
    CLangageManager::GetLangResourceDecodeNewLine(key.c_str());
  }
}
