// The rows, by subject.
#pragma once

#include <cstddef>
#include <string>

namespace vk::tq::bench {

void AddCryptoRows();
void AddMemoryRows();
void AddJobRows();
void AddXmlRows();
void AddFolderRows();
void AddLockRows();
void AddSettingsRows();
void AddListRows();
void AddFtpRows();
void AddLogRows();

// Text of so many bytes in UTF-8, or up to two less.
std::wstring SampleText(bool is_japanese, std::size_t bytes);

// What a child process runs for a memory row; its exit code.
int RunMemoryChild(int argc, char** argv);

}  // namespace vk::tq::bench
