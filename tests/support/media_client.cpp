#include "support/media_client.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>

namespace orrery::test {

using namespace media;

MediaLibrary::MediaLibrary(const std::string& path) : handle_(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) throw std::runtime_error(::dlerror());
  SbtError error{};
  SbtEntry nothing[] = {{1, nullptr}};
  SbtEntry* list = nullptr;
  if (reinterpret_cast<decltype(&sbtinit)>(symbol("sbtinit"))(&error, nothing, &list) != 0)
    throw std::runtime_error("sbtinit fails with " + std::to_string(error.code));
  for (; list->type != initEnd; ++list) {
    if (list->type == initFunctions) calls_ = static_cast<const SbtFunctions*>(list->value);
    if (list->type == initContextSize) contextSize_ = *static_cast<Ulong*>(list->value);
    if (list->type == initInterfaceVersion && *static_cast<Ulong*>(list->value) != 0x0200)
      throw std::runtime_error("the interface has another version");
  }
  if (calls_ == nullptr || contextSize_ == 0) throw std::runtime_error("sbtinit does not tell what it must");
}

MediaLibrary::~MediaLibrary() {
  ::dlclose(handle_);
}

void* MediaLibrary::symbol(const char* name) const {
  void* const found = ::dlsym(handle_, name);
  if (found == nullptr) throw std::runtime_error(std::string(name) + " is not exported");
  return found;
}

MediaSession::MediaSession(const MediaLibrary& library)
    : calls_(library.calls()), memory_(new std::max_align_t[library.contextSize() / sizeof(std::max_align_t) + 1]) {
  // Clients hand over memory as they find it.
  std::memset(memory_.get(), 0xAB, library.contextSize());
}

MediaSession::~MediaSession() {
  calls_.sbtend(context(), flagGiveUp);
}

unsigned long MediaSession::answer(int result) {
  if (result == 0) return 0;
  Ulong code = 0;
  calls_.sbterror(context(), 0, &code, nullptr, nullptr);
  return code;
}

std::string MediaSession::error() {
  char* text = nullptr;
  char* utf8 = nullptr;
  calls_.sbterror(context(), 0, nullptr, &text, &utf8);
  if (text == nullptr || utf8 == nullptr || std::strlen(text) >= largestErrorText) return "no text";
  return text;
}

unsigned long MediaSession::remove(const std::string& name) {
  const char* const names[] = {name.c_str(), nullptr};
  return answer(calls_.sbtremove2(context(), 0, names));
}

std::vector<SbtEntry> MediaSession::describe(const std::vector<std::string>& names) {
  std::vector<const char*> list;
  for (const std::string& name : names) list.push_back(name.c_str());
  list.push_back(nullptr);
  SbtEntry* entries = nullptr;
  std::vector<SbtEntry> found;
  if (calls_.sbtinfo2(context(), 0, list.data(), &entries) != 0) return found;
  for (; entries->type != listEnd; ++entries) found.push_back(*entries);
  return found;
}

unsigned long MediaSession::put(const std::string& name, const std::string& text, std::size_t blockSize) {
  unsigned long code = backup(name, blockSize);
  if (code != 0) return code;
  for (std::size_t from = 0; code == 0 && from < text.size(); from += blockSize) code = write(text.data() + from);
  if (code == 0) return close();
  close(flagGiveUp);
  return code;
}

unsigned long MediaSession::get(const std::string& name, std::size_t blockSize, std::string& text) {
  unsigned long code = restore(name, blockSize);
  if (code != 0) return code;
  text.clear();
  std::string block(blockSize, '\0');
  while ((code = read(block.data())) == 0) text += block;
  close();
  return code == sbtEndOfFile ? 0 : code;
}

}  // namespace orrery::test
