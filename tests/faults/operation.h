// What the fault injection knows of each public operation.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
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

  // From here on an operation that is said to throw nothing may not throw for want of memory either.
  // In front of it stand the making of its object and of its arguments.
  void Made() { is_made_ = true; }

  const std::wstring jobs = path(L"jobs");
  const std::wstring job = jobs + L"\\Job0001";
  const std::wstring work = path(L"work");
  const std::wstring config = product_path(L"config");
  std::wstring event;      // the text of the last one
  std::uint16_t port = 0;  // where the operation's server listens

 protected:
  bool is_made_ = false;
};

// What an operation reports: nothing when it failed, else what it has read.
using Report = std::optional<std::string>;

// Makes the report of an operation. A text that the operation fills is looked at behind it.
inline Report Reports(bool is_done, const std::wstring& text = {}) {
  const Calm calm;
  return is_done ? Report(ToUtf8(text)) : Report();
}

// An operation on a new object. What the object then tells is looked at without faults.
template <class Object, class Work>
std::function<Report(Stage&)> On(Work work) {
  return [work](Stage& stage) {
    Object object(stage);
    stage.Made();
    const bool is_done = std::invoke(work, object) == 1;
    const Calm calm;
    return is_done ? Report(ToUtf8(object.Text())) : Report();
  };
}

// What a fresh reader sees of the stored state, piece by piece: after a fault each is as it was
// before the operation, or as it is after one without a fault.
using Pieces = std::vector<std::string>;

inline Pieces ViewFile(const std::string& file) {
  return {ExistsNative(file) ? ReadNative(file) : "none"};
}

// What an operation's header promises beside its row in fault_promises.txt.
struct Promise {
  // A report or piece that is allowed beside those of a run without a fault.
  const char* also = nullptr;
  // How many of the pieces a success promises.
  std::size_t sure_pieces = 100;
  // A record is replaced in place within a memory page, without a second copy: if half a write is
  // the last that the disk ever takes, it is torn.
  bool is_torn = false;
};

struct Operation {
  const char* name;
  void (*prepare)(Stage&);  // null when a fresh product folder is all that it needs
  std::function<Report(Stage&)> run;
  Pieces (*view)(Stage&) = nullptr;
  Promise promise = {};
  // Starts a server, and sets the port.
  std::shared_ptr<void> (*serve)(Stage&) = nullptr;

  friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

std::vector<Operation> RecordOperations();
std::vector<Operation> SettingsOperations();
std::vector<Operation> TransportOperations();

}  // namespace vk::tq::testing
