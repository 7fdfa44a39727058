#include "empty_function.h"

namespace vk::tq::bench {

void EmptyFunction() {}

}  // namespace vk::tq::bench
