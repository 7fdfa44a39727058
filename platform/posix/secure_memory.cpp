#include "platform/secure_memory.h"

#include <string.h>

namespace vk::tq {

void SecureZero(void* memory, std::size_t size) noexcept { explicit_bzero(memory, size); }

}  // namespace vk::tq
