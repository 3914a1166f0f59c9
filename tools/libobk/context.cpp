#include "context.h"

#include <algorithm>
#include <cstring>

namespace orrery::libobk {

Context* contextIn(void* memory) noexcept {
  if (memory == nullptr || reinterpret_cast<std::uintptr_t>(memory) % alignof(Context) != 0) return nullptr;
  auto* const context = static_cast<Context*>(memory);
  if (context->mark != contextMark || context->place != context) {
    std::memset(memory, 0, sizeof(Context));
    context->mark = contextMark;
    context->place = context;
  }
  return context;
}

void keepFailure(Context& context, Ulong code, std::string_view text) noexcept {
  const std::size_t size = std::min(text.size(), sizeof context.text - 1);
  for (std::size_t i = 0; i < size; ++i) context.text[i] = text[i] < ' ' || text[i] > '~' ? '?' : text[i];
  context.text[size] = '\0';
  context.code = code;
}

}  // namespace orrery::libobk
