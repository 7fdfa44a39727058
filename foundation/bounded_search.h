/// A search with a regular expression that can neither exhaust the stack nor run without end.
///
/// The standard engine searches by recursion, one level for each repetition that it has gone
/// through, and tries out every way to match; it knows no limit of its own. Here it is stopped:
///
/// - A pattern of more than 2000 elements is refused with error_space. An element is a character; a
///   counted repetition is taken as written out, also one behind another, and a group counts five
///   more.
/// - A search that comes within 64 KiB and 1 KiB an element of the end of the thread's stack is
///   stopped with error_stack; a thread that has no more than that cannot search at all. A stack of
///   8 MiB carries a repetition over some 5,000 to 20,000 characters, one of 256 KiB over some 100
///   to 500.
/// - A search that takes more than 10,000,000 steps and 64 for each character of the text is
///   stopped with error_complexity. A step is one look at the text; so many take a fraction of a
///   second.
#pragma once

#include <string>

namespace vk::tq {

/// The first place of the text that matches the pattern (ECMAScript, case sensitive, classes as in
/// the classic locale), whole; empty when there is none. Throws std::regex_error, by the engine or
/// for one of the limits above.
std::wstring FindFirstMatch(const std::wstring& text, const std::wstring& pattern);

}  // namespace vk::tq
