#include "image_name.h"

#include <sodium.h>

#include "failure.h"

namespace orrery::media {
namespace {

constexpr std::size_t longestPlain = 240;
constexpr std::size_t beginning = 160;  // of a name that is too long; one escape more may not be cut
constexpr char digits[] = "0123456789ABCDEF";

bool standsForItself(char character, std::size_t position) {
  if (character == '.') return position != 0;  // temporary files, "." and ".." begin with one
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '-' || character == '_' || character == ':';
}

void append(std::string& to, char byte, bool plain) {
  if (plain) {
    to += byte;
    return;
  }
  const auto number = static_cast<unsigned char>(byte);
  to += '%';
  to += digits[number >> 4];
  to += digits[number & 15];
}

std::string digestOf(std::string_view name) {
  unsigned char digest[crypto_generichash_BYTES];
  crypto_generichash(digest, sizeof digest, reinterpret_cast<const unsigned char*>(name.data()), name.size(), nullptr,
                     0);
  char text[2 * sizeof digest + 1];
  return sodium_bin2hex(text, sizeof text, digest, sizeof digest);
}

}  // namespace

std::string fileNameOf(std::string_view imageName) {
  if (imageName.empty()) throw MediaFailure("an image without a name cannot be kept; give it a name");
  if (imageName.size() >= largestName)
    throw MediaFailure("the image name " + printable(imageName.substr(0, 60)) + "... has " +
                       std::to_string(imageName.size()) + " bytes; it may have " + std::to_string(largestName - 1));
  std::string file;
  std::size_t cut = 0;
  for (std::size_t i = 0; i < imageName.size(); ++i) {
    if (file.size() <= beginning) cut = file.size();
    append(file, imageName[i], standsForItself(imageName[i], i));
  }
  if (file.size() <= longestPlain) return file;
  file.resize(cut);
  return file + "~" + digestOf(imageName);
}

std::string printable(std::string_view name) {
  std::string shown(name);
  for (char& character : shown)
    if (character < ' ' || character > '~') character = '?';
  return shown;
}

}  // namespace orrery::media
