#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace orrery::media {

/// Where a page begins, on every machine that the agent runs on.
constexpr std::align_val_t pageAlignment{4096};

struct FreePages {
  void operator()(char* pages) const noexcept { ::operator delete[](pages, pageAlignment); }
};

/// Memory for whole chunks. It begins with a page: between such memory and the kernel's cache of files some processors
/// copy three times as fast as to a place sixteen bytes further.
using PageBuffer = std::unique_ptr<char[], FreePages>;

inline PageBuffer pageBuffer(std::size_t size) {
  return PageBuffer(static_cast<char*>(::operator new[](size, pageAlignment)));
}

}  // namespace orrery::media
