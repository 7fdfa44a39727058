// tqctl job list: the jobs of a folder, once or as they change.
#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <thread>

#include "foundation/util.h"
#include "jobs/nemi_print_info_file_access.h"
#include "platform/error.h"
#include "platform/path.h"
#include "tqctl/job.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

namespace fs = std::filesystem;
using vk::tq::CManageFileAccess;
using vk::tq::MANAGE_FILE;

struct ListOptions {
  std::wstring folder;
  std::wstring info_folder;
  bool is_watching = false;
};

void DeclareList(CLI::App& command, ListOptions& options) {
  AddText(command, "FOLDER", options.folder, "The folder of the jobs' files")->required();
  AddText(command, "--info", options.info_folder,
          "The folder of the print information files, which name the documents; else FOLDER");
  command.add_flag("--watch", options.is_watching, "Go on, and show each change as it happens");
}

// What tells that a job has changed: its numbered file, and when that and the status file were
// written last.
struct Seen {
  std::wstring extension;
  fs::file_time_type written;
  bool operator==(const Seen&) const = default;
};
using Jobs = std::map<std::wstring, Seen>;

fs::file_time_type WrittenAt(const std::wstring& folder, const std::wstring& file) {
  std::error_code missing;
  return fs::last_write_time(fs::path(vk::tq::PathToNative(folder)) / vk::tq::PathToNative(file),
                             missing);  // the least time when it is missing
}

// The jobs of a folder by their names.
Jobs FindJobs(const std::wstring& folder) {
  vk::tq::CStringArray files;
  if (vk::tq::GetFileList2(folder, L"*.???", files) != 1 &&
      vk::tq::GetLastError() != vk::tq::kErrorFileNotFound) {
    throw Failure(L"The folder \"" + NativePath(folder) + L"\" cannot be searched.",
                  L"Look whether it is there, and whether you may read it.");
  }
  Jobs jobs;
  for (const std::wstring& file : files) {
    const std::wstring extension = file.substr(file.size() - 3);
    if (extension.find_first_not_of(L"0123456789") != std::wstring::npos) continue;
    const std::wstring name = file.substr(0, file.size() - 4);
    const std::wstring status_file = name + L".dat";
    jobs[name] = {extension, std::max(WrittenAt(folder, file), WrittenAt(folder, status_file))};
  }
  return jobs;
}

// The document's name in the print information file of the job's name.
std::wstring DocumentOf(const ListOptions& options, const std::wstring& name) {
  const std::wstring folder = options.info_folder.empty() ? options.folder : options.info_folder;
  const std::wstring path = folder + L"\\" + name + L".xml";
  if (!fs::exists(vk::tq::PathToNative(path))) return L"";
  vk::tq::CNemiPrintInfoFileAccess info(path.c_str());
  info.ReadAll();
  return info.GetNemiInfData().DocumentName;
}

const std::vector<std::wstring> kColumns = {L"job",      L"status",  L"user",
                                            L"document", L"printer", L"age"};

// One job as a row; nothing when it is gone by now.
std::vector<Cell> RowOf(Context& context, const ListOptions& options, const std::wstring& name) {
  CManageFileAccess job((options.folder + L"\\" + name).c_str());
  if (job.ReadAll() != 1) {
    if (job.IsExist() == 0) return {};
    Warn(L"The job \"" + name + L"\" cannot be read whole.");
    context.status = kFailed;
  } else if (!IsDeciphered(job)) {
    Warn(L"The job \"" + name + L"\" cannot be deciphered with this key file.");
    context.status = kFailed;
  }
  const MANAGE_FILE& record = job.GetManageData();
  return {name,
          StatusCell(record.ManageStatus),
          record.userid,
          DocumentOf(options, name),
          record.printername,
          AgeCell(std::max<std::int64_t>(0, std::time(nullptr) - record.FileTime.GetTime()))};
}

Table TableOf(Context& context, const ListOptions& options, const Jobs& jobs) {
  Table table = {kColumns, {}};
  for (const auto& [name, seen] : jobs) {
    std::vector<Cell> row = RowOf(context, options, name);
    if (!row.empty()) table.rows.push_back(std::move(row));
  }
  return table;
}

// ---- --watch ----

// One line, or one document, for what has happened to a job.
void ShowChange(Context& context, const ListOptions& options, const wchar_t* change,
                const std::wstring& name, const std::wstring& extensions, bool is_there) {
  Fields fields = {{L"change", change}, {L"job", name}};
  std::wstring line =
      TimeCell(std::time(nullptr)).text + L"  " + name + L"  " + change + L" " + extensions;
  const std::vector<Cell> row = is_there ? RowOf(context, options, name) : std::vector<Cell>();
  for (std::size_t i = 1; i < row.size(); ++i) fields.emplace_back(kColumns[i], row[i]);
  if (!row.empty() && !row[2].text.empty()) line += L"  " + row[2].text;
  context.out.Done(line, fields);
  context.out.Flush();
}

void ShowChanges(Context& context, const ListOptions& options, const Jobs& before,
                 const Jobs& now) {
  for (const auto& [name, seen] : before) {
    if (!now.contains(name)) {
      ShowChange(context, options, L"gone", name, seen.extension, false);
    }
  }
  for (const auto& [name, seen] : now) {
    const auto old = before.find(name);
    if (old == before.end()) {
      ShowChange(context, options, L"new", name, seen.extension, true);
    } else if (old->second.extension != seen.extension) {
      ShowChange(context, options, L"status", name,
                 old->second.extension + L" -> " + seen.extension, true);
    } else if (old->second != seen) {
      ShowChange(context, options, L"written", name, seen.extension, true);
    }
  }
}

[[noreturn]] void Watch(Context& context, const ListOptions& options, Jobs jobs) {
  constexpr auto kPause = std::chrono::milliseconds(500);
  for (;;) {
    std::this_thread::sleep_for(kPause);
    Jobs now = FindJobs(options.folder);
    ShowChanges(context, options, jobs, now);
    jobs = std::move(now);
  }
}

void ListJobs(Context& context, const ListOptions& options) {
  if (options.folder.empty()) throw UsageError(L"FOLDER is empty.");
  Jobs jobs = FindJobs(options.folder);
  if (options.is_watching && context.out.is_json()) {
    ShowChanges(context, options, {}, jobs);
  } else {
    context.out.Show(TableOf(context, options, jobs), L"There is no job in the folder.");
    context.out.Flush();
  }
  if (options.is_watching) Watch(context, options, std::move(jobs));
}

}  // namespace

void AddJobList(CLI::App& noun, Context& context) {
  AddCommand(noun, context, "list", "List the jobs of a folder", DeclareList, ListJobs);
}

}  // namespace tqctl
