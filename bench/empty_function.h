// A function that does nothing, in a file of its own so that no call of it is inlined.
#pragma once

namespace vk::tq::bench {

void EmptyFunction();

}  // namespace vk::tq::bench
