// Completion of command lines in a shell.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tqctl {

// What may stand in the place of the last word, one a line: commands, and options when it begins
// with a dash. Nothing where a path or a text is due; the shell offers file names then.
std::string Completions(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace tqctl
