#include "text_json.h"

#include <algorithm>
#include <utility>

#include "printable.h"

namespace orrery::tool {
namespace {

std::string hexDigits(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4U];
    text += kDigits[value & 15U];
  }
  return text;
}

}  // namespace

void addText(Json& object, const std::string& key, const std::string& text) {
  object[key] = text;
  if (!isUtf8(text)) object[key + "_hex"] = hexDigits(text);
}

void addTexts(Json& object, const std::string& key, const std::vector<std::string>& texts) {
  object[key] = texts;
  Json digits = Json::array();
  for (const std::string& text : texts) digits.push_back(isUtf8(text) ? Json(nullptr) : Json(hexDigits(text)));
  if (!std::all_of(texts.begin(), texts.end(), isUtf8)) object[key + "_hex"] = std::move(digits);
}

std::string dumped(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace orrery::tool
