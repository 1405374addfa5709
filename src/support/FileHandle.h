// A stream that its handle closes.
#pragma once

#include <cstdio>
#include <memory>

namespace hx {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, CloseFile>;

}  // namespace hx
