// Numbers and texts printed by kind, floats as base64 of their bytes; read back through the object model's
// own text forms.
#include "Ondra/rules/KeyText.h"

#include <boost/algorithm/string/replace.hpp>
#include <fmt/format.h>

#include <bit>
#include <cstdint>
#include <utility>

#include "Kel/Attr.h"
#include "Kel/Scalars.h"
#include "Ondra/ScalarEncode.h"
#include "Ondra/rules/ModelError.h"
#include "Ondra/rules/WalkerTrace.h"
#include "Tovak/Assert.h"

namespace Ondra {
namespace {

// Base64 of the bytes of a number, most significant first.
template <typename Float, typename Bits>
std::string floatKeyText(Float value) {
  Bits bits = std::bit_cast<Bits>(value);
  char bytes[sizeof(Bits)];
  for (std::size_t i = sizeof(Bits); i-- > 0; bits = static_cast<Bits>(bits >> 8))
    bytes[i] = static_cast<char>(bits & 0xff);
  return bytesKeyText({bytes, sizeof bytes});
}

std::string stringKeyText(std::string_view value, bool escape) {
  std::string text(value);
  if (escape && text.find("__") != std::string::npos) boost::algorithm::replace_all(text, "__", "\\__");
  return text;
}

} // namespace

std::string bytesKeyText(std::string_view bytes) {
  std::string text;
  base64Encode(bytes.data(), bytes.size(), text);
  return text;
}

std::string builtinKeyText(Kel::GenericIf const& value, bool escape) {
  using enum Kel::BuiltinKind;
  void const* const at = value.data();
  switch (value.type().builtinKind()) {
  case U8: return fmt::format("{}", *static_cast<std::uint8_t const*>(at));
  case S8: return fmt::format("{}", *static_cast<std::int8_t const*>(at));
  case U16: return fmt::format("{}", *static_cast<std::uint16_t const*>(at));
  case S16: return fmt::format("{}", *static_cast<std::int16_t const*>(at));
  case U32: return fmt::format("{}", *static_cast<std::uint32_t const*>(at));
  case S32: return fmt::format("{}", *static_cast<std::int32_t const*>(at));
  case U64: return fmt::format("{}", *static_cast<std::uint64_t const*>(at));
  case S64: return fmt::format("{}", *static_cast<std::int64_t const*>(at));
  case Bool: return fmt::format("{}", *static_cast<bool const*>(at));
  case Char: return fmt::format("{}", *static_cast<char const*>(at));
  case Float: return floatKeyText<float, std::uint32_t>(*static_cast<float const*>(at));
  case Double: return floatKeyText<double, std::uint64_t>(*static_cast<double const*>(at));
  case String: return stringKeyText(static_cast<Kel::String const*>(at)->view(), escape);
  case Bytes: {
    auto const& bytes = *static_cast<Kel::Bytes const*>(at);
    return bytesKeyText({bytes.bytesPtr(), bytes.length()});
  }
  case Seconds: return fmt::format("{}", static_cast<Kel::Seconds const*>(at)->nanoseconds());
  case Time: return fmt::format("{}", static_cast<Kel::Time const*>(at)->nanoseconds());
  case JsonString:
  case None: break;
  }
  Tovak::fmassert(walkerTrace(), __FILE__, __func__, __LINE__, "a builtin kind that can be a key",
                  "Unknown builtin type: {}", value.type().name().view());
}

Kstd::Result<Kel::Ptr<Kel::GenericIf>, std::string> enumOfName(Kel::KelType type, std::string const& name) {
  return catchModelText([&] { return type.genericIf(Kel::String("'" + name + "'")); });
}

bool isTextType(Kel::KelType type) {
  if (Kel::KelAttr const inner = type.valAttr()) return isTextType(inner.type());
  return type.isBuiltin() && type.builtinKind() == Kel::BuiltinKind::String;
}

Kstd::Result<Kel::Ptr<Kel::GenericIf>, std::string> keyOfText(Kel::KelType type, std::string const& text) {
  using Answer = Kstd::Result<Kel::Ptr<Kel::GenericIf>, std::string>;
  if (type.isEntity() || type.isKeyPtrWrapper())
    return Kstd::Err(fmt::format("key of reference type '{}' is not supported", type.name().view()));
  if (Kel::KelAttr const inner = type.valAttr()) {
    auto value = keyOfText(inner.type(), text);
    if (!value) return value;
    return catchModelError([&] { return type.genericIf(Kel::ArgList{std::move(value).value()}); });
  }
  if (type.isUnion())
    return Kstd::Err(fmt::format("key of union type '{}' is not supported", type.name().view()));
  return catchModelText([&]() -> Answer {
    if (type.hasGnmiStrRep()) return type.genericIfFromGnmiString(Kel::String(text));
    if (type.isEnum()) return enumOfName(type, text);
    if (isTextType(type)) {
      // what stands between the quotation marks of its text form, as it is
      return Kel::handleOf(Kel::String(text));
    }
    return type.genericIf(Kel::String(text));
  });
}

bool isEmptyText(Kel::Ptr<Kel::GenericIf const> const& value) {
  Kel::String const* const text = value ? value->attrValPtr<Kel::String>() : nullptr;
  return text != nullptr && text->empty();
}

} // namespace Ondra
