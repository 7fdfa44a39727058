// Jobs in folders that hold many.
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "floor.h"
#include "foundation/util.h"
#include "harness.h"
#include "jobs/manage_file_access.h"
#include "platform/text.h"
#include "rows.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

std::string JobName(int number, int status) {
  std::array<char, 32> name{};
  snprintf(name.data(), name.size(), "20261124-%06d.%03d", number, status);
  return name.data();
}

// A folder with one numbered file for each job. The job in the middle is the one that is asked for.
struct Folder : Workspace {
  explicit Folder(int job_count) : jobs(job_count), middle(JobName(job_count / 2, kStatus)) {
    std::filesystem::create_directory(folder());
    for (int i = 0; i < jobs; ++i) {
      if (i != jobs / 2) Make(JobName(i, i % 100));
    }
    Make(middle);
  }

  static constexpr int kStatus = 42;

  std::string folder() const { return native("jobs"); }
  void Make(const std::string& name) const {
    const plain::File file(folder() + "/" + name, O_WRONLY | O_CREAT);
  }
  std::wstring base() const {
    return path(L"jobs\\") + std::wstring(middle.begin(), middle.end() - 4);
  }
  std::string prefix() const { return middle.substr(0, middle.size() - 3); }

  int jobs;
  std::string middle;
  plain::Semaphore mutex;
};

// The folder of the last size is kept: rows of one size stand together.
std::shared_ptr<Folder> FolderOf(int jobs) {
  static std::shared_ptr<Folder> last;
  if (last == nullptr || last->jobs != jobs) {
    last.reset();
    last = std::make_shared<Folder>(jobs);
  }
  return last;
}

Contest BindingContest(int jobs) {
  auto f = FolderOf(jobs);
  return {[f] {
            CManageFileAccess job(f->base().c_str());
            Require(job.GetInfoFileName().ends_with(L".042"), "another name");
          },
          [f] { Require(plain::Scan(f->folder(), f->prefix()) == 1, "another count"); }};
}

Contest IsExistContest(int jobs) {
  auto f = FolderOf(jobs);
  auto job = std::make_shared<CManageFileAccess>(f->base().c_str());
  return {[job] { Require(job->IsExist() == 1, "it does not exist"); },
          [f] { Require(plain::Scan(f->folder(), f->prefix()) == 1, "another count"); }};
}

Contest ReadStatusContest(int jobs) {
  auto f = FolderOf(jobs);
  return {[f] {
            CManageFileAccess job(f->base().c_str());
            Require(job.ReadStatus() == 1 && job.GetManageData().ManageStatus == Folder::kStatus,
                    "another status");
          },
          [f] {
            Require(plain::Scan(f->folder(), f->prefix()) == 1, "another count");
            f->mutex.Lock();
            f->mutex.Unlock();
          }};
}

Contest DeleteContest(int jobs) {
  auto f = FolderOf(jobs);
  auto job = std::make_shared<CManageFileAccess>(f->base().c_str());
  return {[job] { Require(job->Delete() == 1, "not deleted"); },
          [f] {
            f->mutex.Lock();
            Require(plain::Scan(f->folder(), f->prefix()) == 1, "another count");
            unlink((f->folder() + "/" + f->middle).c_str());
            f->mutex.Unlock();
          },
          [f] { f->Make(f->middle); }};
}

// How many jobs have each status.
using Statuses = std::array<int, 1000>;

Contest StatusesContest(int jobs) {
  auto f = FolderOf(jobs);
  f->Make(f->middle);
  const auto ours = [f] {
    Statuses statuses{};
    CStringArray names;
    Require(GetFileList2(f->path(L"jobs"), L"*.*", names) == 1, "no list");
    for (const CString& name : names) {
      ++statuses[static_cast<std::size_t>(
          ParseInt(std::wstring_view(name).substr(name.size() - 3)))];
    }
    return statuses;
  };
  const auto floor = [f] {
    Statuses statuses{};
    DIR* const open = opendir(f->folder().c_str());
    while (const dirent* entry = readdir(open)) {
      const std::string_view name = entry->d_name;
      if (name.size() < 4) continue;
      ++statuses[static_cast<std::size_t>(atoi(entry->d_name + name.size() - 3))];
    }
    closedir(open);
    return statuses;
  };
  Require(ours() == floor(), "other statuses");
  return {[ours] { benchmark::DoNotOptimize(ours()); },
          [floor] { benchmark::DoNotOptimize(floor()); }};
}

void AddRowsOf(int jobs, const char* shown) {
  constexpr const char* kScan = "one directory scan";
  const std::string in = std::string(" in a folder of ") + shown + " jobs";
  const int rounds = jobs > 50'000 ? 11 : 51;
  AddRow({"folder", "binding" + in, kScan, 1.5, rounds}, [=] { return BindingContest(jobs); });
  AddRow({"folder", "IsExist" + in, kScan, 1.5, rounds}, [=] { return IsExistContest(jobs); });
  AddRow({"folder", "ReadStatus of a new object" + in, "one directory scan, lock", 1.5, rounds},
         [=] { return ReadStatusContest(jobs); });
  AddRow({"folder", "Delete" + in, "lock, one directory scan, unlink", 1.5, rounds},
         [=] { return DeleteContest(jobs); });
}

}  // namespace

void AddFolderRows() {
  AddRowsOf(100, "100");
  AddRowsOf(10'000, "10,000");
  AddRow({"folder", "all statuses of a folder of 10,000 jobs", "one directory scan", 2.0, 51},
         [] { return StatusesContest(10'000); });
  AddRowsOf(100'000, "100,000");
  for (const int jobs : {10, 100, 1'000, 10'000, 100'000}) {
    const int rounds = jobs > 50'000 ? 5 : 11;
    AddRow({"curve", "binding by jobs", "one directory scan", {}, rounds, jobs},
           [=] { return BindingContest(jobs); });
    AddRow({"curve", "all statuses by jobs", "one directory scan", {}, rounds, jobs},
           [=] { return StatusesContest(jobs); });
  }
}

}  // namespace vk::tq::bench
