// The list of excluded printers. Input: four lines (the attributes of a printer), the text of the
// list.
#include "fuzz/support.h"
#include "storage/crypto.h"
#include "users/white_list_file_access.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

// What an entry means, said once more without any preparation.
bool Matches(const CString& kind, const CString& name, const std::array<CString, 4>& printer) {
  const int number = ParseInt(kind);
  if (number < 0 || number > 3) return false;
  if (number != 0) return printer[static_cast<std::size_t>(number)].find(name) != CString::npos;
  const std::wstring trimmed = Trim(name);
  if (trimmed.empty() || trimmed.front() == L'*') return false;
  const std::size_t star = trimmed.find(L'*');
  return star == trimmed.npos ? ToUpper(trimmed) == ToUpper(printer[0])
                              : printer[0].starts_with(trimmed.substr(0, star));
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  std::array<CString, 4> printer;
  for (CString& attribute : printer) attribute = Wide(input.Line());
  CCrypto().CryptingStringWriter(Wide(input.Rest()), sandbox.Path("WhiteList.dat"));

  CWhiteListFileAccess list;
  Require(list.Read(sandbox.Path("")) == 1, "any text is a list");
  const CStringArray& kinds = list.GetKinds();
  const CStringArray& names = list.GetNames();
  Require(kinds.GetSize() == names.GetSize(), "each kind has its name");
  bool is_listed = false;
  for (int i = 0; i < kinds.GetSize(); ++i) is_listed |= Matches(kinds[i], names[i], printer);
  is_listed = is_listed && printer[3].find(L"Velkorandia Tessa Loquin Driver") == CString::npos;
  Require(list.IsWhitePrinter(printer[0], printer[1], printer[2], printer[3]) == int{is_listed},
          "a printer is listed when an entry says so");

  Require(list.Write(sandbox.Path("")) == 1, "a list that was read can be written");
  CWhiteListFileAccess again;
  Require(
      again.Read(sandbox.Path("")) == 1 && again.GetKinds() == kinds && again.GetNames() == names,
      "a list comes back");
}
