// tqctl job: the files of held print jobs.
#include "jobs/manage_file_access.h"
#include "tqctl/command.h"

namespace tqctl {
namespace {

using vk::tq::CManageFileAccess;

struct JobOptions {
  std::wstring base;
};

void DeclareJob(CLI::App& command, JobOptions& options) {
  AddText(command, "BASE", options.base, "The job's path, with any extension or none")->required();
}

void DeleteJob(Context& context, const JobOptions& options) {
  CManageFileAccess job(options.base.c_str());
  if (job.IsExist() == 0) {
    throw Failure(L"There is no job \"" + options.base + L"\".",
                  L"\"tqctl job list DIR\" shows the jobs of a folder.");
  }
  if (job.Delete() != 1) {
    throw Failure(L"The job \"" + options.base + L"\" cannot be deleted.",
                  L"Look at the rights of its folder.");
  }
  context.out.Done(L"Deleted the job \"" + options.base + L"\".", {{L"deleted", options.base}});
}

}  // namespace

void AddJob(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "job", "Held print jobs");
  AddCommand(noun, context, "delete", "Delete all files of a job", DeclareJob, DeleteJob);
}

}  // namespace tqctl
