#include "storage/stored_record.h"

#include "platform/secure_memory.h"
#include "storage/crypto.h"
#include "storage/xml.h"

namespace vk::tq {
namespace {

constexpr const wchar_t* kRootName = L"Velkorandia";

}  // namespace

StoredRecord::~StoredRecord() {
  const WipeTextsOnExit wipe_texts(texts_);
  const WipeTextsOnExit wipe_found(found_);
}

void StoredRecord::Add(const wchar_t* name, const CString& text) {
  names_.Add(name);
  texts_.Add(text);
}

StoredRecord::Result StoredRecord::Write(const CString& path) {
  CString xml = CXml(kRootName, record_name_).CreateXmlString01(names_, texts_);
  const WipeOnExit wipe(xml);
  if (xml.empty()) return Result::kNoXml;
  CCrypto crypto;
  if (crypto.CryptingStringWriter(xml, path) == 0) return Result::kDone;
  last_errno_ = crypto.m_nLastError;
  return Result::kFileFailure;
}

StoredRecord::Result StoredRecord::Read(const CString& path, Duplicates duplicates) {
  CString xml;
  const WipeOnExit wipe(xml);
  CCrypto crypto;
  if (crypto.CryptingStringReader(path, xml) != 0) {
    last_errno_ = crypto.m_nLastError;
    return Result::kFileFailure;
  }
  CXml document(kRootName, record_name_);
  const int result = duplicates == Duplicates::kFirstCounts
                         ? document.SelectFirstXMLStringValue(xml, names_, found_)
                         : document.SelectXMLStringValue(xml, names_, found_);
  return result == 0 ? Result::kDone : Result::kNoXml;
}

const CString* StoredRecord::Find(const wchar_t* name) const {
  const auto found = found_.find(std::wstring_view(name));
  return found == found_.end() ? nullptr : &found->second;
}

}  // namespace vk::tq
