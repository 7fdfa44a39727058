// tqctl job: the files of held print jobs.
#include "tqctl/job.h"

#include <algorithm>
#include <filesystem>

#include "foundation/util.h"
#include "platform/path.h"
#include "storage/crypto.h"
#include "tqctl/assignment.h"
#include "tqctl/held_lock.h"
#include "tqctl/key_file.h"
#include "tqctl/text.h"

namespace tqctl {

using vk::tq::CManageFileAccess;
using vk::tq::CUtil;
using vk::tq::MANAGE_FILE;

std::wstring BaseOf(const std::wstring& path) {
  std::wstring base = path;
  std::replace(base.begin(), base.end(), L'/', L'\\');
  const int point = CUtil::GetExtPos(base);
  return point < 0 ? base : base.substr(0, static_cast<std::size_t>(point));
}

Cell StatusCell(int status) {
  std::wstring digits = std::to_wstring(status);
  if (digits.size() < 3) digits.insert(0, 3 - digits.size(), L'0');
  return {status, digits, Tone::kStrong};
}

bool IsDeciphered(CManageFileAccess& job) {
  const MANAGE_FILE& record = job.GetManageData();
  if (!record.userid.empty() || !record.printername.empty()) return true;
  try {
    std::wstring text;
    return vk::tq::CCrypto().CryptingStringReader(job.GetInfoFileName(), text) == 0 &&
           text.find(L"<ManageInfo") != std::wstring::npos;
  } catch (const std::exception&) {
    return false;  // the key file is no good
  }
}

namespace {

// The status file's keys but for the status itself, which has a name and an option of its own.
template <class Record, class Visit>
void ForEachStatusFileField(Record& record, const Visit& visit) {
  for (const auto& key : vk::tq::kStatusFileKeys) {
    if (key.number == &MANAGE_FILE::ManageStatus) continue;
    if (key.number != nullptr) {
      visit(key.name, record.*key.number);
    } else if (key.text != nullptr) {
      visit(key.name, record.*key.text);
    } else {
      visit(L"LocalTimeoutUnsentAuthPrint", record.LocalTimeoutUnsentAuthPrint);
      visit(L"LocalTimeoutUnsentLogPrint", record.LocalTimeoutUnsentLogPrint);
    }
  }
}

template <class Record, class Visit>
void ForEachInformationField(Record& record, const Visit& visit) {
  for (const auto& row : vk::tq::kManageFileTexts) visit(row.name, record.*row.field);
  visit(L"spoolsize", record.spoolsize);
}

constexpr auto kForEachField = [](auto& record, const auto& visit) {
  ForEachInformationField(record, visit);
  ForEachStatusFileField(record, visit);
};

// Reads the keys of the status file into the record, which no read of the library does: a change of
// status writes all of them anew.
class StatusFile {
 public:
  explicit StatusFile(const std::wstring& base) : path_(base + L".dat") {}

  bool Exists() const { return std::filesystem::exists(vk::tq::PathToNative(path_)); }

  void ReadInto(MANAGE_FILE& record) const {
    for (const auto& key : vk::tq::kStatusFileKeys) {
      if (key.number == &MANAGE_FILE::ManageStatus) continue;
      if (key.text != nullptr) {
        record.*key.text = CUtil::GetIniString(key.section, key.name, path_);
      } else {
        const auto number = key.number != nullptr ? key.number
                            : (record.AuthPrintFlag == 1)
                                ? &MANAGE_FILE::LocalTimeoutUnsentAuthPrint
                                : &MANAGE_FILE::LocalTimeoutUnsentLogPrint;
        record.*number = CUtil::GetIniInt(key.section, key.name, path_, record.*number);
      }
    }
  }

 private:
  std::wstring path_;
};

Failure NoSuchJob(const std::wstring& base) {
  return {L"There is no job " + QuotedPath(base) + L".",
          L"\"tqctl job list FOLDER\" shows the jobs of a folder."};
}

Failure CannotWrite(const std::wstring& base) {
  return {
      L"The job " + QuotedPath(base) + L" cannot be written.",
      L"Look at the rights of its folder and of its files. A field takes no control characters."};
}

// A job that exists, read, with its status file's keys.
struct ReadJob {
  explicit ReadJob(const std::wstring& path) : base(BaseOf(path)), job(base.c_str()) {
    if (job.IsExist() == 0) throw NoSuchJob(base);
    if (job.ReadStatus() != 1) Warn(L"The job's status file holds no status.");
    if (job.ReadInformation() != 1) {
      throw Failure(L"The job " + QuotedPath(base) + L" cannot be read.",
                    L"Look at the rights of its files, and with -v at the library's lines.");
    }
    is_deciphered = IsDeciphered(job);
    if (!is_deciphered) Warn(L"The job's information cannot be deciphered with this key file.");
    const StatusFile file(base);
    has_status_file = file.Exists();
    if (has_status_file) file.ReadInto(job.GetManageData());
  }

  std::wstring base;
  CManageFileAccess job;
  bool is_deciphered = false;
  bool has_status_file = false;
};

// ---- job show ----

struct JobOptions {
  std::wstring base;
};

void DeclareJob(CLI::App& command, JobOptions& options) {
  AddText(command, "BASE", options.base, "The job's path, with any extension or none")->required();
}

void ShowJob(Context& context, const JobOptions& options) {
  ReadJob read(options.base);
  const MANAGE_FILE& record = read.job.GetManageData();
  Fields fields = {{L"file", NativePath(read.job.GetInfoFileName())},
                   {L"status", StatusCell(record.ManageStatus)},
                   {L"changed", TimeCell(record.FileTime.GetTime())}};
  const auto add = [&](const wchar_t* name, const auto& value) {
    fields.emplace_back(name, value);
  };
  ForEachInformationField(record, add);
  if (read.has_status_file) ForEachStatusFileField(record, add);
  if (!record.PrinterIpAddress.empty()) add(L"PrinterIpAddress", record.PrinterIpAddress);
  context.out.Show(fields);
  if (!read.is_deciphered) context.status = kFailed;
}

// ---- job new, job set ----

struct WriteOptions {
  std::wstring base;
  int status = 0;
  CLI::Option* status_option = nullptr;
  std::vector<std::wstring> fields;
};

void DeclareWrite(CLI::App& command, WriteOptions& options) {
  AddText(command, "BASE", options.base, "The job's path, with any extension or none")->required();
  options.status_option = command.add_option("--status", options.status, "The status, 0 to 999")
                              ->check(CLI::Range(0, 999))
                              ->type_name("N");
  AddTexts(command, "--field", options.fields, "A field, as name=value; may be repeated");
}

void ShowWritten(Context& context, const std::wstring& what, const std::wstring& base,
                 CManageFileAccess& job) {
  const Cell status = StatusCell(job.GetManageData().ManageStatus);
  context.out.Done(
      what + L" the job " + QuotedPath(base) + L"; its status is " + status.text + L".",
      {{L"file", NativePath(job.GetInfoFileName())}, {L"status", status}});
}

void NewJob(Context& context, const WriteOptions& options) {
  const std::wstring base = BaseOf(options.base);
  const HeldLock lock(L"Global\\KITORA_QTL_JOB_MANAGE");
  CManageFileAccess job(base.c_str());
  if (job.IsExist() != 0) {
    throw Failure(L"The job " + QuotedPath(base) + L" exists.",
                  L"Choose another name, or change the job with \"tqctl job set\".");
  }
  RequireKeyForWriting();
  AssignAll(job.GetManageData(), options.fields, kForEachField);
  job.GetManageData().ManageStatus = options.status;
  if (job.WriteAll() != 1) throw CannotWrite(base);
  ShowWritten(context, L"Made", base, job);
}

// A status file that is written anew must not lose the end of an old message that was read in part.
void RequireWholeMessage(const MANAGE_FILE& record, const std::wstring& old_message) {
  constexpr std::size_t kLongestRead = 259;
  if (vk::tq::IsMatchStatusMain(record.ManageStatus, 95, 96, 97, 98, 99, -1) != 1) return;
  if (old_message.size() < kLongestRead || record.ErrorMessage != old_message) return;
  throw Failure(L"The status file would lose the end of its long ErrorMessage.",
                L"Give another one with --field ErrorMessage=TEXT.");
}

int WriteChanges(ReadJob& read, const WriteOptions& options) {
  if (options.fields.empty()) return read.job.WriteStatus();
  if (!read.is_deciphered) {
    throw Failure(L"The fields of the job that cannot be deciphered would be lost.",
                  L"Put the right key file in its place; see \"tqctl crypt check\".");
  }
  RequireKeyForWriting();
  // A status that lies in the status file stays there unless a new one is given.
  const bool stays_in_file =
      options.status_option->count() == 0 && read.job.GetInfoFileName().ends_with(L".099");
  return read.job.WriteAll(stays_in_file ? 1 : 0);
}

void SetJob(Context& context, const WriteOptions& options) {
  const bool has_status = options.status_option->count() > 0;
  if (!has_status && options.fields.empty()) {
    throw UsageError(L"There is nothing to set: give --status or --field.");
  }
  const HeldLock lock(L"Global\\KITORA_QTL_JOB_MANAGE");
  ReadJob read(options.base);
  MANAGE_FILE& record = read.job.GetManageData();
  const std::wstring old_message = record.ErrorMessage;
  AssignAll(record, options.fields, kForEachField);
  if (has_status) record.ManageStatus = options.status;
  RequireWholeMessage(record, old_message);
  if (WriteChanges(read, options) != 1) throw CannotWrite(read.base);
  ShowWritten(context, L"Changed", read.base, read.job);
}

// ---- job delete ----

void DeleteJob(Context& context, const JobOptions& options) {
  const std::wstring base = BaseOf(options.base);
  CManageFileAccess job(base.c_str());
  if (job.IsExist() == 0) throw NoSuchJob(base);
  if (job.Delete() != 1) {
    throw Failure(L"The job " + QuotedPath(base) + L" cannot be deleted.",
                  L"Look at the rights of its folder, and for a folder with such a name.");
  }
  context.out.Done(L"Deleted the job " + QuotedPath(base) + L".", {{L"deleted", NativePath(base)}});
}

}  // namespace

void AddJob(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "job", "Held print jobs");
  AddJobList(noun, context);
  AddCommand(noun, context, "show", "Show all that is known about a job", DeclareJob, ShowJob);
  AddCommand(noun, context, "new", "Make a job", DeclareWrite, NewJob);
  AddCommand(noun, context, "set", "Change a job's status and fields", DeclareWrite, SetJob);
  AddCommand(noun, context, "delete", "Delete all files of a job", DeclareJob, DeleteJob);
}

}  // namespace tqctl
