// What the commands of the noun "job" share.
#pragma once

#include <string>

#include "jobs/manage_file_access.h"
#include "tqctl/command.h"

namespace tqctl {

// The path without its extension, as the library takes it.
std::wstring BaseOf(const std::wstring& path);

// A status as it stands in the extension.
Cell StatusCell(int status);

// Whether the numbered file of a job that was read could be deciphered: another key file, or a torn
// file, gives a record without any text, as an empty record does.
bool IsDeciphered(vk::tq::CManageFileAccess& job);

// Adds the command "list", which stands in job_list.cpp.
void AddJobList(CLI::App& noun, Context& context);

}  // namespace tqctl
