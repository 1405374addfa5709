// The names in a directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using Names = std::vector<std::string>;

// Adds the sorted names in an open directory to `names`, without "." and "..", until there are
// `most`. Returns false with errno set if they cannot all be read.
bool ReadNames(int directory, Names& names, size_t most = SIZE_MAX);
