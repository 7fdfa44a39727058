#include "foundation/bounded_search.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <iterator>
#include <locale>
#include <regex>
#include <string_view>
#include <vector>

#include "platform/stack.h"

namespace vk::tq {
namespace {

namespace errors = std::regex_constants;

constexpr std::uint64_t kMostElements = 2000;
constexpr std::uint64_t kElementsOfGroup = 5;
constexpr std::size_t kStackReserve = std::size_t{64} * 1024;
constexpr std::size_t kStackOfElement = 1024;
constexpr std::uint64_t kSteps = 10'000'000;
constexpr std::uint64_t kStepsOfCharacter = 64;

// Counts the elements of a pattern with its counted repetitions written out. It reads escapes,
// brackets and braces as the engine does; of a pattern that the engine will refuse it need not make
// sense.
class PatternMeter {
 public:
  explicit PatternMeter(std::wstring_view pattern) : rest_(pattern) {}

  std::uint64_t Count() {
    while (!rest_.empty()) ReadElement();
    while (groups_.size() > 1) CloseGroup();
    return groups_.back().Total();
  }

 private:
  struct Group {
    std::uint64_t before = 0;  // the elements in front of the last one
    std::uint64_t last = 0;    // what a repetition would repeat

    std::uint64_t Total() const { return before + last; }
    void Add(std::uint64_t elements) {
      before = Total();
      last = elements;
    }
  };

  wchar_t Next() const { return rest_.empty() ? L'\0' : rest_.front(); }
  void Skip(std::size_t count) { rest_.remove_prefix(std::min(count, rest_.size())); }

  void ReadElement() {
    switch (Next()) {
      case L'\\':
        ReadEscape();
        groups_.back().Add(1);
        break;
      case L'[':
        groups_.back().Add(SkipBracket());
        break;
      case L'(':
        Skip(1);
        groups_.emplace_back();
        break;
      case L')':
        Skip(1);
        if (groups_.size() > 1) CloseGroup();
        break;
      case L'{':
        Repeat();
        break;
      case L'*':
      case L'+':
      case L'?':
        // Part of the element in front: a counted repetition that follows repeats both.
        Skip(1);
        ++groups_.back().last;
        break;
      default:
        Skip(1);
        groups_.back().Add(1);
    }
  }

  // A control escape takes the character behind its letter, whatever that is.
  void SkipEscape() { Skip(rest_.substr(1).starts_with(L'c') ? 3 : 2); }

  // The engine lets the number of a group overflow, and may come to one that is there.
  void ReadEscape() {
    const bool is_group = rest_.size() > 1 && rest_[1] >= L'1' && rest_[1] <= L'9';
    if (!is_group) return SkipEscape();
    Skip(1);
    if (ReadNumber() >= kMostElements) throw std::regex_error(errors::error_backref);
  }

  // The length of a bracket expression: each range in it may have to be looked at.
  std::uint64_t SkipBracket() {
    const std::size_t size = rest_.size();
    Skip(1);
    while (!rest_.empty() && Next() != L']') {
      if (Next() == L'\\') {
        SkipEscape();
      } else if (Next() == L'[' && rest_.size() > 1 && std::wcschr(L".:=", rest_[1]) != nullptr) {
        const wchar_t mark[] = {rest_[1], L']', L'\0'};
        Skip(2);
        Skip(std::min(rest_.find(mark), rest_.size()) + 2);
      } else {
        Skip(1);
      }
    }
    Skip(1);
    return size - rest_.size();
  }

  void CloseGroup() {
    const std::uint64_t inside = groups_.back().Total();
    groups_.pop_back();
    groups_.back().Add(inside + kElementsOfGroup);
  }

  void Repeat() {
    Skip(1);
    std::uint64_t most = ReadNumber();
    if (Next() == L',') {
      Skip(1);
      most = std::max(most, ReadNumber());
    }
    Skip(1);
    Group& group = groups_.back();
    group.last = std::min(group.last * (most + 1), kMostElements + 1);
  }

  // A number, or a greater one than any pattern may have.
  std::uint64_t ReadNumber() {
    std::uint64_t number = 0;
    for (; Next() >= L'0' && Next() <= L'9'; Skip(1)) {
      number = std::min(number * 10 + static_cast<std::uint64_t>(Next() - L'0'), kMostElements);
    }
    return number;
  }

  std::wstring_view rest_;
  std::vector<Group> groups_{1};
};

// What one search may still use. It belongs to the thread, since the engine also makes iterators
// out of nothing.
struct Limits {
  std::uint64_t steps = 0;
  std::size_t stack_reserve = 0;
};
thread_local Limits limits;

void CheckStack() {
  if (RemainingStack() < limits.stack_reserve) throw std::regex_error(errors::error_stack);
}

void TakeStep() {
  if (limits.steps == 0) throw std::regex_error(errors::error_complexity);
  --limits.steps;
  CheckStack();
}

// A place in the text. Everything that the engine does with one is a step, so that no way through
// the engine's recursion escapes the count.
class Place {
 public:
  using iterator_category = std::bidirectional_iterator_tag;
  using value_type = wchar_t;
  using difference_type = std::ptrdiff_t;
  using pointer = const wchar_t*;
  using reference = const wchar_t&;

  Place() { TakeStep(); }
  explicit Place(const wchar_t* at) : at_(at) {}
  Place(const Place& other) : at_(other.at_) { TakeStep(); }
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): it does no harm
  Place& operator=(const Place& other) {
    TakeStep();
    at_ = other.at_;
    return *this;
  }
  ~Place() = default;

  reference operator*() const {
    TakeStep();
    return *at_;
  }
  Place& operator++() {
    TakeStep();
    ++at_;
    return *this;
  }
  Place operator++(int) {
    Place old = *this;
    ++*this;
    return old;
  }
  Place& operator--() {
    TakeStep();
    --at_;
    return *this;
  }
  Place operator--(int) {
    Place old = *this;
    --*this;
    return old;
  }
  bool operator==(const Place& other) const {
    TakeStep();
    return at_ == other.at_;
  }

  const wchar_t* at() const { return at_; }

 private:
  const wchar_t* at_ = nullptr;
};

}  // namespace

std::wstring FindFirstMatch(const std::wstring& text, const std::wstring& pattern) {
  const std::uint64_t elements = PatternMeter(pattern).Count();
  if (elements > kMostElements) throw std::regex_error(errors::error_space);
  limits = {kSteps + kStepsOfCharacter * text.size(), kStackReserve + elements * kStackOfElement};
  CheckStack();

  std::wregex expression;
  expression.imbue(std::locale::classic());
  expression.assign(pattern);
  std::match_results<Place> match;
  const Place begin(text.data());
  const Place end(text.data() + text.size());
  if (!std::regex_search(begin, end, match, expression)) return {};
  return {match[0].first.at(), match[0].second.at()};
}

}  // namespace vk::tq
