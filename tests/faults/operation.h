// What the fault injection knows of each public operation.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "faults/seam.h"
#include "platform/types.h"
#include "support/test_support.h"

namespace vk::tq::testing {

// A fresh product folder for each run of an operation.
class Stage : public ProductTest {
 public:
  using ProductTest::native;
  using ProductTest::path;
  using ProductTest::product_native;
  using ProductTest::product_path;
  using ProductTest::WriteKeyFile;

  // The operation's own folder, or a file in it; the call meets no fault.
  std::wstring WorkPath(const std::wstring& name = L"") const;
  // Of what an operation leaves behind.
  std::vector<std::string> Names() const;

  // From here on an operation that is said to throw nothing may not throw for want of memory either.
  // In front of it stand the making of its object and of its arguments.
  void Made() { is_made_ = true; }

  const std::wstring job = path(L"jobs\\Job0001");
  const std::wstring config = product_path(L"config");
  std::uint16_t port = 0;  // where the operation's server listens

 protected:
  void Refresh();

  bool is_made_ = false;

 private:
  const ScopedEnvironment temporary_{"TMPDIR", native("tmp").c_str()};
};

// What an operation reports: nothing when it failed, else what it has read.
using Report = std::optional<std::string>;

// Makes the report of an operation. A text that the operation fills is looked at behind it.
Report Reports(bool is_done, const std::wstring& text = {});

enum class Throws : unsigned char {
  kNothing,
  kForMemory,  // std::bad_alloc
  kFailures,   // any exception that its header names, std::bad_alloc among them
};

// What a header promises of an operation that meets a fault.
struct Promise {
  // How the function begins that the line of a failure names, and its lowest level. Null when the
  // header promises no line.
  const wchar_t* line = nullptr;
  int level = 4;
  Throws throws = Throws::kNothing;
  // Reports and pieces that the header allows beside those of a run without a fault.
  std::vector<std::string> also = {};
  // How many of the pieces a success promises.
  std::size_t sure_pieces = 100;
  // The numbers of the lines of that function and level that failures leave: each of them, and no
  // other. Nothing is said of them when empty.
  std::set<int> numbers = {};
  // A record is replaced in place within a memory page, without a second copy: if half a write is
  // the last that the disk ever takes, it is torn.
  bool is_torn_by_half = false;

  Promise Or(const char* allowed) const { return With(&Promise::also, {allowed}); }
  Promise Sure(std::size_t pieces) const { return With(&Promise::sure_pieces, pieces); }
  Promise Tells(std::set<int> more) const {
    more.insert(numbers.begin(), numbers.end());
    return With(&Promise::numbers, std::move(more));
  }
  Promise Torn(bool is_torn = true) const { return With(&Promise::is_torn_by_half, is_torn); }

  template <class Value>
  Promise With(Value Promise::*member, Value value) const {
    Promise copy = *this;
    copy.*member = std::move(value);
    return copy;
  }
};
inline const Promise kNoLine;
inline const Promise kNoLineButBadAlloc = {nullptr, 0, Throws::kForMemory};

using Pieces = std::vector<std::string>;

struct Operation {
  const char* name;
  void (*prepare)(Stage&);  // null when a fresh product folder is all that it needs
  Report (*run)(Stage&);
  Promise promise = {};
  // What a fresh reader sees of the stored state, piece by piece: after a fault each is as it was
  // before the operation, or as it is after one without a fault.
  Pieces (*view)(Stage&) = nullptr;
  // Starts a server, and sets the port.
  std::shared_ptr<void> (*serve)(Stage&) = nullptr;
};

void PrintTo(const Operation& operation, std::ostream* out);

std::vector<Operation> StorageOperations();
std::vector<Operation> RecordOperations();
std::vector<Operation> SettingsOperations();
std::vector<Operation> FoundationOperations();
std::vector<Operation> TransportOperations();

}  // namespace vk::tq::testing
