// The files of one job, and the XML in them.
#include <acl/libacl.h>
#include <fcntl.h>
#include <grp.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/acl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

#include "floor.h"
#include "harness.h"
#include "jobs/manage_file_access.h"
#include "rows.h"
#include "storage/xml.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

// ---- XML by hand, on UTF-8 ----

using Pairs = std::vector<std::pair<std::string, std::string>>;

const xmlChar* Xml(const std::string& text) {
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

std::string WriteXml(const char* record_name, const Pairs& pairs) {
  xmlDoc* const document = xmlNewDoc(nullptr);
  xmlNode* const root = xmlNewNode(nullptr, Xml("Velkorandia"));
  xmlDocSetRootElement(document, root);
  xmlNode* const record = xmlNewChild(root, nullptr, Xml(record_name), nullptr);
  for (const auto& [name, value] : pairs) {
    xmlNewTextChild(record, nullptr, Xml(name), Xml(value));
  }
  xmlChar* bytes = nullptr;
  int size = 0;
  xmlDocDumpMemoryEnc(document, &bytes, &size, "UTF-8");
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
  xmlFree(bytes);
  xmlFreeDoc(document);
  return text;
}

xmlDoc* ParseXml(const char* bytes, std::size_t size) {
  return xmlReadMemory(bytes, static_cast<int>(size), nullptr, nullptr, XML_PARSE_NONET);
}

std::map<std::string, std::string> ReadXml(const std::string& text) {
  std::map<std::string, std::string> values;
  xmlDoc* const document = ParseXml(text.data(), text.size());
  const xmlNode* const record = xmlDocGetRootElement(document)->children;
  for (const xmlNode* node = record->children; node != nullptr; node = node->next) {
    const xmlNode* const only = node->children;
    values[reinterpret_cast<const char*>(node->name)] =
        only == nullptr ? "" : reinterpret_cast<const char*>(only->content);
  }
  xmlFreeDoc(document);
  return values;
}

struct Document {
  CStringArray names;
  CStringArray values;
  Pairs pairs;
};

Document MakeDocument(int elements) {
  Document document;
  for (int i = 0; i < elements; ++i) {
    const std::string name = "Element" + std::to_string(i);
    const std::wstring value =
        SampleText(i % 3 == 0, static_cast<std::size_t>(12 + i % 5 * 6)).substr(0, 24);
    document.names.Add(std::wstring(name.begin(), name.end()));
    document.values.Add(value);
    document.pairs.emplace_back(name, testing::ToUtf8(value));
  }
  return document;
}

Contest XmlContest(int elements) {
  const auto d = std::make_shared<Document>(MakeDocument(elements));
  const auto ours = [d] {
    CMapStringToString values;
    CXml xml;
    xml.SelectXMLStringValue(xml.CreateXmlString01(d->names, d->values), d->names, values);
    return values;
  };
  const auto floor = [d] { return ReadXml(WriteXml("QTL", d->pairs)); };
  const auto our_values = ours();
  const auto floor_values = floor();
  Require(our_values.size() == d->pairs.size() && floor_values.size() == d->pairs.size(),
          "elements are missing");
  for (int i = 0; i < elements; ++i) {
    const auto& [name, value] = d->pairs[static_cast<std::size_t>(i)];
    Require(our_values.find(d->names[i])->second == d->values[i], "another value");
    Require(floor_values.find(name)->second == value, "another value by hand");
  }
  return {[ours] { benchmark::DoNotOptimize(ours().size()); },
          [floor] { benchmark::DoNotOptimize(floor().size()); }};
}

// ---- One job ----

constexpr CString MANAGE_FILE::*kFields[] = {
    &MANAGE_FILE::NotifyName,  &MANAGE_FILE::ip,          &MANAGE_FILE::printerno,
    &MANAGE_FILE::userno,      &MANAGE_FILE::userid,      &MANAGE_FILE::accountname,
    &MANAGE_FILE::printuserno, &MANAGE_FILE::usergroupid, &MANAGE_FILE::color,
    &MANAGE_FILE::number,      &MANAGE_FILE::jobid,       &MANAGE_FILE::portname,
    &MANAGE_FILE::deviceuse,   &MANAGE_FILE::printername, &MANAGE_FILE::copiedjobid};
constexpr const char* kElements[] = {"NotifyName", "ip",          "printerno",   "userno",
                                     "userid",     "accountname", "printuserno", "usergroupid",
                                     "color",      "number",      "jobid",       "portname",
                                     "deviceuse",  "printername", "copiedjobid"};
constexpr std::size_t kFileSize = 2048;

// A job in a folder of its own, whose numbered file has 2 KiB; and its twin, for the floor.
struct Job : Workspace {
  Job() {
    std::filesystem::create_directory(native("jobs"));
    std::filesystem::create_directory(native("floor"));
    for (const auto field : kFields) record.*field = L"value of a field";
    record.tavocopy = L"0";
    record.tavocopyerr = L"0";
    record.spoolsize = 123456;
    for (std::size_t size = 0; FileSize() != kFileSize; ++size) record.comment.assign(size, L'c');
    for (std::size_t i = 0; i < std::size(kFields); ++i) {
      pairs.emplace_back(kElements[i], "value of a field");
    }
    pairs.emplace_back("comment", std::string(record.comment.begin(), record.comment.end()));
    pairs.emplace_back("tavocopy", "0");
    pairs.emplace_back("tavocopyerr", "0");
    pairs.emplace_back("spoolsize", "123456");
    plain::WriteText(key_file(), WriteXml("ManageInfo", pairs), FloorFile(5));
  }

  // The size that the job's file gets; written with status 5.
  std::size_t FileSize() {
    CManageFileAccess job(base().c_str());
    record.ManageStatus = 5;
    job.SetManageData(record);
    Require(job.WriteAll() == 1, "the job cannot be written");
    return std::filesystem::file_size(native("jobs/job.005"));
  }

  std::wstring base() const { return path(L"jobs\\job"); }
  std::string FloorFile(int status) const {
    std::array<char, 8> extension{};
    snprintf(extension.data(), extension.size(), ".%03d", status);
    return native("floor/job") + extension.data();
  }

  MANAGE_FILE record;
  Pairs pairs;
  plain::Semaphore mutex;
};

void ReadJobByHand(const Job& job, const std::string& folder, const std::string& file_name) {
  job.mutex.Lock();
  Require(plain::Scan(folder, "job.") > 0, "no job");
  {
    const plain::File file(file_name, O_RDONLY);
    std::string bytes(file.Size(), '\0');
    file.Read(bytes.data(), bytes.size());
    auto* const data = reinterpret_cast<unsigned char*>(bytes.data());
    plain::Cipher(plain::ReadKey(job.key_file()), false).Run(data, data, bytes.size());
    xmlDoc* const document = ParseXml(bytes.data(), strlen(bytes.data()));
    Require(document != nullptr, "no document");
    xmlFreeDoc(document);
  }
  job.mutex.Unlock();
}

Contest ReadAllContest() {
  auto job = std::make_shared<Job>();
  const auto ours = [job] {
    CManageFileAccess access(job->base().c_str());
    Require(access.ReadAll() == 1, "not read");
    benchmark::DoNotOptimize(access.GetManageData().spoolsize);
  };
  // The object is made for each reading, as programs do, and looks for the job's file once itself.
  const auto floor = [job] {
    Require(plain::Scan(job->native("floor"), "job.") > 0, "no job");
    ReadJobByHand(*job, job->native("floor"), job->FloorFile(5));
  };
  return {ours, floor};
}

Contest ReadAllAloneContest() {
  auto job = std::make_shared<Job>();
  auto access = std::make_shared<CManageFileAccess>(job->base().c_str());
  return {[job, access] { Require(access->ReadAll() == 1, "not read"); },
          [job] { ReadJobByHand(*job, job->native("floor"), job->FloorFile(5)); }};
}

void RenameByHand(const std::string& from, const std::string& to) {
  Require(renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0,
          "not renamed");
}

// Gives a group full access to a file.
void GrantByHand(const std::string& path, const char* name) {
  std::array<char, 1024> buffer{};
  group entry{};
  group* found = nullptr;
  getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found);
  if (found == nullptr) {
    passwd user{};
    passwd* found_user = nullptr;
    getpwnam_r(name, &user, buffer.data(), buffer.size(), &found_user);
    return;
  }
  const plain::File file(path, O_PATH | O_NOFOLLOW);
  const std::string open_file = "/proc/self/fd/" + std::to_string(file.get());
  acl_t acl = acl_get_file(open_file.c_str(), ACL_TYPE_ACCESS);
  acl_entry_t old = nullptr;
  for (int which = ACL_FIRST_ENTRY; acl_get_entry(acl, which, &old) == 1; which = ACL_NEXT_ENTRY) {
    acl_tag_t tag = ACL_UNDEFINED_TAG;
    acl_get_tag_type(old, &tag);
    if (tag == ACL_GROUP) acl_delete_entry(acl, old);
  }
  acl_entry_t added = nullptr;
  acl_create_entry(&acl, &added);
  acl_set_tag_type(added, ACL_GROUP);
  acl_set_qualifier(added, &entry.gr_gid);
  acl_permset_t rights = nullptr;
  acl_get_permset(added, &rights);
  acl_add_perm(rights, ACL_READ | ACL_WRITE);
  acl_calc_mask(&acl);
  Require(acl_set_file(open_file.c_str(), ACL_TYPE_ACCESS, acl) == 0, "no access list");
  acl_free(acl);
}

// The status file: locked, read, and changed in place.
void WriteStatusFileByHand(const std::string& path, int status) {
  std::array<char, 512> text{};
  const int size = snprintf(
      text.data(), text.size(),
      "[Setting]\r\nAuthPrintFlag=1\r\nLocalTimeoutUnsent=0\r\nAuthPrintTimeout=30\r\n"
      "LogPrintTimeout=30\r\nLogPrintRetryInterval=0\r\nLogPrintRetryMaxCount=0\r\n[Information]"
      "\r\nManageStatus=%d\r\nRetryDatetime=\r\nRetryCount=0\r\nErrorMessage=\r\n",
      status);
  const plain::File file(path, O_RDWR | O_CREAT);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  fcntl(file.get(), F_OFD_SETLK, &lock);
  std::string old(file.Size() + 1, '\0');
  const ssize_t got = pread(file.get(), old.data(), old.size(), 0);
  Require(got >= 0, "the status file cannot be read");
  Require(pwrite(file.get(), text.data(), static_cast<std::size_t>(size), 0) == size,
          "the status file cannot be written");
  file.Cut(static_cast<std::size_t>(size));
  GrantByHand(path, "users");
  GrantByHand(path, "power users");
}

void WriteInformationByHand(const Job& job, const std::string& path) {
  const std::string xml = WriteXml("ManageInfo", job.pairs);
  std::vector<unsigned char> bytes((xml.size() + 16) / 16 * 16);
  std::copy(xml.begin(), xml.end(), bytes.begin());
  plain::Cipher(plain::ReadKey(job.key_file()), true).Run(bytes.data(), bytes.data(), bytes.size());
  const plain::File file(path, O_WRONLY);
  benchmark::DoNotOptimize(file.Size());
  posix_fallocate(file.get(), 0, static_cast<off_t>(bytes.size()));
  file.Write(bytes.data(), bytes.size());
  file.Cut(bytes.size());
}

// Two statuses in turns, so that every write changes the name.
struct Turns {
  int first;
  int status;
  int Next() { return status = status == first ? first + 1 : first; }
};

Contest WriteContest(bool with_information, int first) {
  auto job = std::make_shared<Job>();
  auto access = std::make_shared<CManageFileAccess>(job->base().c_str());
  access->SetManageData(job->record);
  auto turns = std::make_shared<Turns>(Turns{first, first});
  const auto ours = [job, access, turns, with_information] {
    access->GetManageData().ManageStatus = turns->Next();
    Require((with_information ? access->WriteAll() : access->WriteStatus()) == 1, "not written");
  };
  auto hand_turns = std::make_shared<Turns>(Turns{first, 5});
  const auto floor = [job, hand_turns, with_information, first] {
    job->mutex.Lock();
    const std::string old_name = job->FloorFile(hand_turns->status);
    if (with_information) WriteInformationByHand(*job, old_name);
    RenameByHand(old_name, job->FloorFile(hand_turns->Next()));
    if (first >= 95) WriteStatusFileByHand(job->native("floor/job.dat"), hand_turns->status);
    job->mutex.Unlock();
  };
  return {ours, floor};
}

}  // namespace

void AddJobRows() {
  const char* const kReadFloor = "lock, scan, key file, MD5, EVP, libxml2 parse";
  AddRow({"job", "ReadAll of a job of 2 KiB", kReadFloor, 1.4}, ReadAllAloneContest);
  AddRow({"job", "the same with a new object", std::string(kReadFloor) + ", one more scan", 1.4},
         ReadAllContest);
  for (const int status : {5, 96}) {
    const std::string at = status == 5 ? " at 5" : " at 97";
    AddRow({"job", "WriteAll" + at, "the same work by hand", 1.4},
           [=] { return WriteContest(true, status); });
    AddRow({"job", "WriteStatus" + at, "the same work by hand", 1.4},
           [=] { return WriteContest(false, status); });
  }
}

void AddXmlRows() {
  constexpr const char* kFloor = "libxml2 on UTF-8";
  AddRow({"xml", "47 elements: CreateXmlString01, SelectXMLStringValue", kFloor, 2.0},
         [] { return XmlContest(47); });
  for (const int elements : {1, 10, 47, 200, 1000}) {
    AddRow({"curve", "XML by elements", kFloor, {}, 11, elements},
           [=] { return XmlContest(elements); });
  }
}

}  // namespace vk::tq::bench
