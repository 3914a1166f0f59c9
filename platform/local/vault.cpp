#include "vault.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "posix.h"

namespace orrery::platform::local {
namespace {

constexpr std::string_view form = "v1:";
constexpr int base64Form = sodium_base64_VARIANT_ORIGINAL;

void startSodium() {
  if (sodium_init() < 0) throw Failure(Status::failure("the cryptography library cannot be started"));
}

/// The key of a home for one scope; wiped at its end.
class Key {
 public:
  explicit Key(const std::string& path) {
    const OwnFd file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) throw systemFailure("open the key " + path, errno);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw systemFailure("look at the key " + path, errno);
    if (!S_ISREG(status.st_mode)) throw Failure(Status::failure("the key " + path + " is not a file"));
    if ((status.st_mode & 077) != 0)
      throw Failure(Status::failure("the key " + path + " can be used by others than its owner; set its mode to 0600"));
    if (status.st_size != static_cast<off_t>(bytes_.size()))
      throw Failure(Status::failure("the key " + path + " does not have " + std::to_string(bytes_.size()) +
                                    " bytes; put it back from a copy"));
    ssize_t got = 0;
    do {
      got = ::read(file.get(), bytes_.data(), bytes_.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) throw systemFailure("read the key " + path, errno);
    if (got != static_cast<ssize_t>(bytes_.size())) throw Failure(Status::failure("the key " + path + " ended early"));
  }
  ~Key() { sodium_memzero(bytes_.data(), bytes_.size()); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  const unsigned char* data() const noexcept { return bytes_.data(); }

 private:
  std::array<unsigned char, crypto_secretbox_KEYBYTES> bytes_{};
};

const unsigned char* bytesOf(const std::string& text) noexcept {
  return reinterpret_cast<const unsigned char*>(text.data());
}

/// Nothing when the text is not in base64 form.
std::vector<unsigned char> decode(std::string_view text) {
  if (text.empty()) return {};
  std::vector<unsigned char> bytes(text.size());
  std::size_t size = 0;
  if (sodium_base642bin(bytes.data(), bytes.size(), text.data(), text.size(), nullptr, &size, nullptr, base64Form) != 0)
    return {};
  bytes.resize(size);
  return bytes;
}

Failure notOurs() {
  return Failure(Status::failure(
      "the stored password was not sealed with the key of this home, or its text was changed; set the password anew"));
}

}  // namespace

std::string Vault::makeKey() {
  startSodium();
  std::string key(crypto_secretbox_KEYBYTES, '\0');
  randombytes_buf(key.data(), key.size());
  return key;
}

Status Vault::seal(const std::string& plain, std::string& sealed) {
  return guarded([&] {
    startSodium();
    const Key key(keyPath_);
    std::vector<unsigned char> box(crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES + plain.size());
    randombytes_buf(box.data(), crypto_secretbox_NONCEBYTES);
    crypto_secretbox_easy(box.data() + crypto_secretbox_NONCEBYTES, bytesOf(plain), plain.size(), box.data(),
                          key.data());
    std::string text(sodium_base64_encoded_len(box.size(), base64Form), '\0');
    sodium_bin2base64(text.data(), text.size(), box.data(), box.size(), base64Form);
    text.pop_back();  // the null
    sealed = std::string(form) + text;
  });
}

Status Vault::open(const std::string& sealed, std::string& plain) {
  return guarded([&] {
    if (sealed.empty()) {
      plain.clear();
      return;
    }
    startSodium();
    const Key key(keyPath_);
    if (sealed.compare(0, form.size(), form) != 0) throw notOurs();
    const std::vector<unsigned char> box = decode(std::string_view(sealed).substr(form.size()));
    constexpr std::size_t overhead = crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES;
    if (box.size() < overhead) throw notOurs();
    std::string opened(box.size() - overhead, '\0');
    if (crypto_secretbox_open_easy(reinterpret_cast<unsigned char*>(opened.data()),
                                   box.data() + crypto_secretbox_NONCEBYTES, box.size() - crypto_secretbox_NONCEBYTES,
                                   box.data(), key.data()) != 0)
      throw notOurs();
    plain = std::move(opened);
  });
}

}  // namespace orrery::platform::local
