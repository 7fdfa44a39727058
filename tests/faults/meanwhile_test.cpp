// What another process does between any two calls of an operation, where the file system lets
// everybody see a file in the making.
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "faults/seam.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

class MeanwhileTest : public ::testing::Test {
 protected:
  using Act = std::function<bool()>;

  // Lets the other one begin in front of each call of the first one, which waits a moment for it.
  void Interleave(const std::function<void()>& prepare, const Act& first, const Act& other,
                  const std::function<void(bool, bool)>& check,
                  const std::vector<const Group*>& groups = {&kOpen, &kRead, &kWrite, &kRename,
                                                             &kRemove, &kRoom, &kStatus, &kRights,
                                                             &kLock, &kFlush}) {
    for (const Group* const group : groups) {
      for (int n = 1;; ++n) {
        prepare();
        std::future<bool> end;
        const std::function<void()> meanwhile = [&] {
          end = std::async(std::launch::async, [&] {
            return OnPlainFileSystem(other, {kNone, 0}, 1);
          });
          end.wait_for(std::chrono::milliseconds(20));
          if (then_ == nullptr) return;
          seam.fault = then_;
          seam.left = 1;
        };
        const Fault turn = {.group = *group, .error = 0, .meanwhile = &meanwhile};
        const bool is_done = OnPlainFileSystem(first, turn, n);
        if (!end.valid()) break;
        SCOPED_TRACE(group->kind + std::string(", call ") + std::to_string(n));
        check(is_done, end.get());
        if (HasFailure()) return;
      }
    }
  }

  static bool OnPlainFileSystem(const Act& act, const Fault& fault, int n) {
    seam = {.fault = &fault, .left = n, .is_plain = true};
    const bool is_done = act();
    seam = {};
    return is_done;
  }

  std::wstring path(const char* name) const { return PathFromNative(temp_.native(name)); }
  std::vector<std::string> Targets() const { return ListNative(temp_.native("to")); }
  void Prepare() const {
    std::filesystem::remove_all(temp_.native("to"));
    std::filesystem::create_directory(temp_.native("to"));
    WriteNative(temp_.native("from/a"), "a");
    WriteNative(temp_.native("from/b"), "b");
    WriteNative(temp_.native("to/.move-10"), "left by a mover or a download that was killed");
  }
  bool Move(const char* from, const char* to) const {
    return MoveFileReplacing(path(from), path(to));
  }

  const TempFolder temp_;
  const Fault* then_ = nullptr;  // how the first one's calls fail after the other one's turn
};

TEST_F(MeanwhileTest, AMovedFileIsOneFile) {
  const auto prepare = [this] { return Prepare(); };
  const auto move = [this] { return Move("from/a", "to/a"); };
  Interleave(
      prepare, move, [this] { return Move("from/b", "to/b"); },
      [this](bool first, bool other) {
        EXPECT_TRUE(first && other);
        EXPECT_EQ((std::vector<std::string>{"a", "b"}), Targets());
      });
  const auto expect_one = [this](bool first, bool other) {
    EXPECT_NE(first, other);
    EXPECT_EQ(first, ExistsNative(temp_.native("to/a")));
    EXPECT_FALSE(ExistsNative(temp_.native("from/a")));
  };
  Interleave(
      prepare, move, [this] { return Move("from/a", "to/c"); }, expect_one);
  const auto remove = [this] { return std::filesystem::remove(temp_.native("from/a")); };
  Interleave(prepare, move, remove, expect_one);
  const auto replace = [this] {
    std::filesystem::rename(temp_.native("from/b"), temp_.native("from/a"));
    return true;
  };
  Interleave(prepare, move, replace,
             [this](bool, bool) {
               const bool is_there = ExistsNative(temp_.native("from/a"));
               EXPECT_EQ("b", ReadNative(temp_.native(is_there ? "from/a" : "to/a")));
             },
             {&kOpen, &kRead, &kWrite, &kLock, &kFlush});
  // What is gone before its copy is whole replaces no other file.
  const auto prepare_target = [this] {
    Prepare();
    WriteNative(temp_.native("to/a"), "old");
  };
  for (const Act& other : {Act(remove), Act(replace)}) {
    Interleave(prepare_target, move, other,
               [this](bool, bool) { EXPECT_EQ("old", ReadNative(temp_.native("to/a"))); },
               {&kLock, &kRead, &kWrite});
  }
}

TEST_F(MeanwhileTest, TheSettingsOfBothStay) {
  for (const std::string old : {"", "[A]\n"}) {
    const auto prepare = [&] {
      std::filesystem::remove(temp_.native("ini"));
      if (!old.empty()) WriteNative(temp_.native("ini"), old + std::string(9000, ';') + "\n");
    };
    const auto write = [this](const wchar_t* key) {
      return WriteProfileString(path("ini"), L"A", key, L"1");
    };
    const auto has = [this](const wchar_t* key) {
      return Profile(path("ini")).GetString(L"A", key, L"", 9) == L"1";
    };
    const auto first = [&] { return write(L"first"); };
    const auto other = [&] { return write(L"other"); };
    Interleave(prepare, first, other, [&](bool is_first, bool is_other) {
      EXPECT_TRUE(is_first && is_other && has(L"first") && has(L"other"));
    });
    const Fault full = {.group = kWrite, .error = ENOSPC, .lasts = true};
    then_ = &full;
    Interleave(prepare, first, other, [&](bool is_first, bool is_other) {
      EXPECT_TRUE(is_other && has(L"other"));
      EXPECT_LE(is_first, has(L"first"));
    });
    then_ = nullptr;
  }
}

}  // namespace
}  // namespace vk::tq::testing
