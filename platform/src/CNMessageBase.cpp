#include "orrery/platform/CNMessageBase.h"

#include <algorithm>

#include <protozero/pbf_writer.hpp>

struct CNMessageBase::Field {
  std::uint32_t number = 0;
  bool isList = false;
  std::string text;
  std::vector<CNMessageBase> list;
};

CNMessageBase::CNMessageBase() = default;
CNMessageBase::CNMessageBase(const CNMessageBase&) = default;
CNMessageBase::CNMessageBase(CNMessageBase&&) noexcept = default;
CNMessageBase& CNMessageBase::operator=(const CNMessageBase&) = default;
CNMessageBase& CNMessageBase::operator=(CNMessageBase&&) noexcept = default;
CNMessageBase::~CNMessageBase() = default;

const CNMessageBase::Field* CNMessageBase::find(std::uint32_t number) const {
  const auto found = std::find_if(fields_.begin(), fields_.end(), [&](const Field& f) { return f.number == number; });
  return found == fields_.end() ? nullptr : &*found;
}

CNMessageBase::Field* CNMessageBase::find(std::uint32_t number) {
  return const_cast<Field*>(static_cast<const CNMessageBase*>(this)->find(number));
}

CNMessageBase::Field& CNMessageBase::make(std::uint32_t number) {
  if (Field* const known = find(number)) return *known;
  const auto behind =
      std::find_if(fields_.begin(), fields_.end(), [&](const Field& field) { return field.number > number; });
  Field& made = *fields_.emplace(behind);
  made.number = number;
  return made;
}

void CNMessageBase::setstring(std::uint32_t field, std::string text) {
  Field& set = make(field);
  set.isList = false;
  set.list.clear();
  set.text = std::move(text);
}

const std::string& CNMessageBase::getstring(std::uint32_t field) const {
  static const std::string none;
  const Field* const found = find(field);
  return found == nullptr ? none : found->text;
}

bool CNMessageBase::isset(std::uint32_t field) const noexcept {
  return find(field) != nullptr;
}

std::vector<CNMessageBase>& CNMessageBase::emptyList(std::uint32_t field) {
  Field& set = make(field);
  set.isList = true;
  set.text.clear();
  set.list.clear();
  return set.list;
}

void CNMessageBase::addlistobject(std::uint32_t field, CNMessageBase object) {
  Field* const found = find(field);
  std::vector<CNMessageBase>& kept = found != nullptr && found->isList ? found->list : emptyList(field);
  kept.push_back(std::move(object));
}

const std::vector<CNMessageBase>& CNMessageBase::list(std::uint32_t field) const {
  static const std::vector<CNMessageBase> none;
  const Field* const found = find(field);
  return found == nullptr ? none : found->list;
}

void CNMessageBase::serialize(std::string& bytes) const {
  protozero::pbf_writer writer(bytes);
  for (const Field& field : fields_) {
    if (!field.isList) {
      writer.add_string(field.number, field.text);
      continue;
    }
    for (const CNMessageBase& message : field.list) {
      std::string inner;
      message.serialize(inner);
      writer.add_message(field.number, inner);
    }
  }
}
