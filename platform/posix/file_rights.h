// The rights of a file, for another one that will take its place.
#pragma once

#include <sys/stat.h>

namespace vk::tq {

// Gives a new file the owner, the group and the access list of another, whose status is `info` and
// which may be open as a mere path, as far as the caller may. What cannot go along gives nobody but
// the caller more than he had: the rights of a group that cannot be kept do not go to another one.
bool CopyRights(int from, int to, const struct stat& info);

}  // namespace vk::tq
