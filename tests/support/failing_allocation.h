// Lets an allocation fail, to reach the handlers of exceptions that nothing else raises.
#pragma once

namespace vk::tq::testing {

// The next allocation of the calling thread throws std::bad_alloc, and none after it.
void FailNextAllocation();
}  // namespace vk::tq::testing
