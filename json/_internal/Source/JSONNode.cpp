#include "json/_internal/Source/JSONNode.h"

#include <stdexcept>
#include <utility>

#include "json/_internal/Source/JSONSingleton.h"
#include "json/_internal/Source/MissingMember.h"
#include "json/_internal/Source/internalJSONNode.h"

using json_detail::missingMember;

namespace {

template <typename Pointer>
auto& existing(Pointer child) {
  if (child == nullptr) {
    throw std::out_of_range("");
  }
  return *child;
}

JSONNode& existingMember(JSONNode** slot, std::string_view name) {
  if (slot == nullptr) {
    missingMember(name);
  }
  return **slot;
}

JSONNode& existingElement(JSONNode* child, unsigned int index) {
  if (child == nullptr) {
    missingMember(NumberToString::_uitoa(index));
  }
  return *child;
}

}  // namespace

JSONNode::JSONNode(char type) : internal(internalJSONNode::newInternal(type)) {}

JSONNode::JSONNode(std::string_view name, double value, std::string_view digits)
    : internal(internalJSONNode::newScalar(JSON_NUMBER, name, digits, value)) {}

JSONNode::JSONNode(std::string_view name, long double value)
    : JSONNode(name, static_cast<double>(value), NumberToString::_ftoa(value)) {}

JSONNode::JSONNode(std::string_view name, bool value)
    : internal(internalJSONNode::newScalar(
          JSON_BOOL, name, value ? jsonSingletonCONST_TRUE() : jsonSingletonCONST_FALSE(),
          value ? 1 : 0)) {}

JSONNode::JSONNode(std::string_view name, std::string_view value)
    : internal(internalJSONNode::newScalar(JSON_STRING, name, value, 0)) {}

JSONNode::JSONNode(std::string_view name, const char* value)
    : JSONNode(name, std::string_view(value)) {}

JSONNode::JSONNode(const JSONNode& other) noexcept : internal(other.internal) {
  internal->addShare();
}

JSONNode& JSONNode::operator=(const JSONNode& other) noexcept { return *this = JSONNode(other); }

void JSONNode::dropShare(internalJSONNode* body) noexcept { body->dropShare(); }

JSONNode JSONNode::duplicate() const { return {Adopt{}, internalJSONNode::newInternal(*internal)}; }

char JSONNode::type() const { return static_cast<char>(internal->type); }

std::string JSONNode::name() const { return std::string(internal->name.view()); }

void JSONNode::set_name(std::string_view name) { own().SetName(name); }

std::string JSONNode::get_comment() const { return std::string(internal->comment.view()); }

void JSONNode::set_comment(std::string_view comment) { own().comment.assign(comment); }

unsigned int JSONNode::size() const {
  internal->Fetch();
  return internal->size();
}

bool JSONNode::operator==(const JSONNode& other) const {
  return internal->IsEqualTo(*other.internal);
}

std::string JSONNode::as_string() const { return std::string(internal->AsText()); }

long JSONNode::as_int() const { return static_cast<long>(static_cast<long long>(*internal)); }

double JSONNode::as_float() const {
  return static_cast<double>(static_cast<long double>(*internal));
}

bool JSONNode::as_bool() const { return static_cast<bool>(*internal); }

JSONNode::operator long long() const { return static_cast<long long>(*internal); }

JSONNode::operator unsigned long long() const { return static_cast<unsigned long long>(*internal); }

JSONNode::operator long double() const { return static_cast<long double>(*internal); }

JSONNode JSONNode::as_node() const {
  JSONNode copy(*this);
  copy.cast(JSON_NODE);
  return copy;
}

JSONNode JSONNode::as_array() const {
  JSONNode copy(*this);
  copy.cast(JSON_ARRAY);
  return copy;
}

void JSONNode::cast(char type) {
  internal->Fetch();
  if (internal->type != static_cast<unsigned char>(type)) {
    own().Cast(type);
  }
}

JSONNode& JSONNode::operator[](std::string_view name) {
  return existingMember(own().at(name), name);
}

const JSONNode& JSONNode::operator[](std::string_view name) const {
  return existingMember(internal->at(name), name);
}

JSONNode& JSONNode::operator[](unsigned int index) {
  return existingElement(own().at(index), index);
}

const JSONNode& JSONNode::operator[](unsigned int index) const {
  return existingElement(internal->at(index), index);
}

JSONNode& JSONNode::at(std::string_view name) { return *existing(own().at(name)); }

const JSONNode& JSONNode::at(std::string_view name) const { return *existing(internal->at(name)); }

JSONNode& JSONNode::at(unsigned int index) { return existing(own().at(index)); }

const JSONNode& JSONNode::at(unsigned int index) const { return existing(internal->at(index)); }

JSONNode& JSONNode::at_nocase(std::string_view name) { return *existing(own().at_nocase(name)); }

const JSONNode& JSONNode::at_nocase(std::string_view name) const {
  return *existing(internal->at_nocase(name));
}

std::string JSONNode::write(std::size_t reserve) const {
  return writeAt(internalJSONNode::kNotFormatted, reserve);
}

std::string JSONNode::write_formatted(std::size_t reserve) const { return writeAt(0, reserve); }

std::string JSONNode::writeAt(unsigned int level, std::size_t reserve) const {
  if (level != internalJSONNode::kNotFormatted) {
    internal->Fetch();  // before the type is looked at: it may turn out to be null
  }
  if (!internal->isContainer()) {
    return {};
  }
  json_detail::JSONOutput output(reserve);
  internal->Write(level, true, output);
  return output.text();
}
