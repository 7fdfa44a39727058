// Why a file or a server could not be used, in words for people.
#pragma once

#include <cstdint>
#include <string>

#include "tqctl/failure.h"

namespace tqctl {

// A failure with an error value: what happened, why, and what to do about it.
Failure FailureWith(const std::wstring& what_happened, unsigned code);

// How many bytes a file has that is about to be sent; Failure when it cannot be.
std::uint64_t SizeToSend(const std::wstring& path);

}  // namespace tqctl
