#include "platform/types.h"

namespace vk::tq {

CObject::~CObject() = default;

const char* CInvalidArgException::what() const noexcept { return "index outside the array"; }

}  // namespace vk::tq
