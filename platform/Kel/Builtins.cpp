// One table of descriptors made from the C++ types; order and hash by value, canonical texts only, base64
// where decimals fail.
#include "Kel/Builtins.h"

#include <absl/strings/escaping.h>
#include <fmt/format.h>

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <type_traits>

#include "Kel/Declare.h"
#include "Kel/Error.h"

namespace Kel {
namespace Impl {
namespace {

template <class T>
T const& as(void const* at) {
  return *static_cast<T const*>(at);
}

template <class T>
std::string_view textOf(T const& value) {
  if constexpr (std::is_same_v<T, JsonString>)
    return value.text.view();
  else
    return value.view();
}

// Floats are ordered by their bits: negative before positive, then by magnitude; every pattern equals itself
// alone.
template <class F>
auto orderedBits(F value) {
  using Bits = std::conditional_t<sizeof(F) == 4, std::int32_t, std::int64_t>;
  Bits const bits = std::bit_cast<Bits>(value);
  return bits < 0 ? static_cast<Bits>(bits ^ std::numeric_limits<Bits>::max()) : bits;
}

template <class T>
int compareBuiltin(TypeDesc const&, void const* a, void const* b) {
  T const& x = as<T>(a);
  T const& y = as<T>(b);
  if constexpr (std::is_floating_point_v<T>) {
    return orderedBits(x) < orderedBits(y) ? -1 : orderedBits(y) < orderedBits(x) ? 1 : 0;
  } else if constexpr (std::is_same_v<T, Seconds> || std::is_same_v<T, Time>) {
    return x.nanoseconds() < y.nanoseconds() ? -1 : y.nanoseconds() < x.nanoseconds() ? 1 : 0;
  } else if constexpr (std::is_arithmetic_v<T>) {
    return x < y ? -1 : y < x ? 1 : 0;
  } else {
    int const order = textOf(x).compare(textOf(y));
    return order < 0 ? -1 : order > 0 ? 1 : 0;
  }
}

template <class T>
std::uint64_t hashBuiltin(TypeDesc const&, void const* at) {
  T const& value = as<T>(at);
  if constexpr (std::is_same_v<T, String>) {
    return value.hash();
  } else if constexpr (std::is_same_v<T, Seconds> || std::is_same_v<T, Time>) {
    auto const ns = value.nanoseconds();
    return hashBytes(&ns, sizeof ns);
  } else if constexpr (std::is_arithmetic_v<T>) {
    return hashBytes(&value, sizeof value);
  } else {
    return hashBytes(textOf(value).data(), textOf(value).size());
  }
}

template <class T>
TypeDesc* builtin(BuiltinKind kind, char const* name) {
  auto* const desc = new TypeDesc();
  desc->name = String::dedup(name);
  desc->module = coreModule();
  desc->kind = TypeKind::Builtin;
  desc->builtin = kind;
  desc->complete = true;
  desc->isValueType = true;
  desc->ops = ValueOps{
      .size = sizeof(T),
      .align = alignof(T),
      .trivial = std::is_trivially_copyable_v<T>,
      .construct = [](TypeDesc const&, void* at) { new (at) T(); },
      .copy = [](TypeDesc const&, void* at, void const* from) { new (at) T(as<T>(from)); },
      .assign = [](TypeDesc const&, void* to, void const* from) { *static_cast<T*>(to) = as<T>(from); },
      .destroy = [](TypeDesc const&, void* at) { std::destroy_at(static_cast<T*>(at)); },
      .compare = &compareBuiltin<T>,
      .hash = &hashBuiltin<T>,
  };
  return desc;
}

struct BuiltinTable {
  std::array<TypeDesc*, 24> types{};
  BuiltinTable() {
    using enum BuiltinKind;
    add<std::uint8_t>(U8, "U8");
    add<std::int8_t>(S8, "S8");
    add<std::uint16_t>(U16, "U16");
    add<std::int16_t>(S16, "S16");
    add<std::uint32_t>(U32, "U32");
    add<std::int32_t>(S32, "S32");
    add<std::uint64_t>(U64, "U64");
    add<std::int64_t>(S64, "S64");
    add<bool>(Bool, "Bool");
    add<char>(Char, "Char");
    add<float>(Float, "Float");
    add<double>(Double, "Double");
    add<Kel::String>(String, "String");
    add<Kel::Bytes>(Bytes, "Bytes");
    add<Kel::Seconds>(Seconds, "Seconds");
    add<Kel::Time>(Time, "Time");
    add<Kel::JsonString>(JsonString, "JsonString");
  }
  template <class T>
  void add(BuiltinKind kind, char const* name) {
    types[static_cast<std::size_t>(kind)] = builtin<T>(kind, name);
  }
};

// Runs `use` with a null pointer to the C++ type of an integer kind.
template <class Use>
auto withInteger(BuiltinKind kind, Use const& use) {
  switch (kind) {
  case BuiltinKind::U8: return use(static_cast<std::uint8_t*>(nullptr));
  case BuiltinKind::S8: return use(static_cast<std::int8_t*>(nullptr));
  case BuiltinKind::U16: return use(static_cast<std::uint16_t*>(nullptr));
  case BuiltinKind::S16: return use(static_cast<std::int16_t*>(nullptr));
  case BuiltinKind::U32: return use(static_cast<std::uint32_t*>(nullptr));
  case BuiltinKind::S32: return use(static_cast<std::int32_t*>(nullptr));
  case BuiltinKind::U64: return use(static_cast<std::uint64_t*>(nullptr));
  case BuiltinKind::S64: return use(static_cast<std::int64_t*>(nullptr));
  case BuiltinKind::None:
  case BuiltinKind::Bool:
  case BuiltinKind::Char:
  case BuiltinKind::Float:
  case BuiltinKind::Double:
  case BuiltinKind::String:
  case BuiltinKind::Bytes:
  case BuiltinKind::Seconds:
  case BuiltinKind::Time:
  case BuiltinKind::JsonString: break;
  }
  throwError("what is no integer was asked for as one");
}

template <class F>
std::string printFloat(F value) {
  if (!std::isnan(value)) return fmt::format("{}", value);
  // A NaN's payload has no decimal form: its bytes, most significant first, as keys carry them.
  using Bits = std::conditional_t<sizeof(F) == 4, std::uint32_t, std::uint64_t>;
  Bits bits = std::bit_cast<Bits>(value);
  std::string bytes(sizeof(F), '\0');
  for (std::size_t i = sizeof(F); i-- > 0; bits = static_cast<Bits>(bits >> 8))
    bytes[i] = static_cast<char>(bits & 0xff);
  return base64(bytes);
}

std::string mismatch(TypeDesc const& type, std::string_view text, char const* expected) {
  constexpr std::size_t kShown = 80;
  std::string_view const shown = text.substr(0, kShown);
  return fmt::format("'{}'{} is no value of type '{}': expected {}", shown, text.size() > kShown ? "..." : "",
                     type.name.view(), expected);
}

// docs/decisions.md: "May a number be written in several ways?"
template <class T>
std::optional<std::string> parseInteger(TypeDesc const& type, std::string_view text, void* to) {
  T value{};
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc::result_out_of_range) {
    return mismatch(
        type, text,
        fmt::format("a number from {} to {}", std::numeric_limits<T>::min(), std::numeric_limits<T>::max())
            .c_str());
  }
  // Only the canonical text: one text for one number, so that no two keys name one member.
  if (error != std::errc() || end != text.data() + text.size() || fmt::format("{}", value) != text)
    return mismatch(type, text, "a decimal integer without leading zeros, blanks or a plus sign");
  *static_cast<T*>(to) = value;
  return std::nullopt;
}

template <class F>
std::optional<std::string> parseFloat(TypeDesc const& type, std::string_view text, void* to) {
  constexpr std::size_t kBase64Size = sizeof(F) == 4 ? 8 : 12;
  if (text.size() == kBase64Size && text.back() == '=') {
    if (auto const bytes = fromBase64(text); bytes && bytes->size() == sizeof(F)) {
      std::conditional_t<sizeof(F) == 4, std::uint32_t, std::uint64_t> bits = 0;
      for (char const byte : *bytes)
        bits = (bits << 8) | static_cast<unsigned char>(byte);
      *static_cast<F*>(to) = std::bit_cast<F>(bits);
      return std::nullopt;
    }
  }
  F value{};
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  // Of the decimal texts the canonical one only, as for integers.
  if (error != std::errc() || end != text.data() + text.size() || printFloat(value) != text)
    return mismatch(type, text, "the shortest decimal number, or the base64 text of its big-endian bytes");
  *static_cast<F*>(to) = value;
  return std::nullopt;
}

std::optional<std::string> parseQuoted(TypeDesc const& type, std::string_view text, std::string_view& inner) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"')
    return mismatch(type, text, "a text between double quotation marks");
  inner = text.substr(1, text.size() - 2);
  return std::nullopt;
}

std::optional<std::string> parseBool(TypeDesc const& type, std::string_view text, void* to) {
  if (text != "true" && text != "false") return mismatch(type, text, "true or false");
  *static_cast<bool*>(to) = text == "true";
  return std::nullopt;
}

std::optional<std::string> parseChar(TypeDesc const& type, std::string_view text, void* to) {
  if (text.size() != 1) return mismatch(type, text, "one character");
  *static_cast<char*>(to) = text.front();
  return std::nullopt;
}

std::optional<std::string> parseBytes(TypeDesc const& type, std::string_view text, void* to) {
  auto const bytes = fromBase64(text);
  if (!bytes) return mismatch(type, text, "base64 text");
  *static_cast<Bytes*>(to) = Bytes(*bytes);
  return std::nullopt;
}

// A number of nanoseconds: of type N as text, of type T as a value.
template <class N, class T>
std::optional<std::string> parseNanoseconds(TypeDesc const& type, std::string_view text, void* to) {
  N ns = 0;
  if (auto error = parseInteger<N>(type, text, &ns)) return error;
  *static_cast<T*>(to) = T::fromNanoseconds(ns);
  return std::nullopt;
}

} // namespace

std::string base64(std::string_view bytes) { return absl::Base64Escape({bytes.data(), bytes.size()}); }

std::optional<std::string> fromBase64(std::string_view text) {
  std::string bytes;
  // The decoder is lenient (blanks, missing padding, loose final bits); one text for one value is what is
  // wanted.
  if (!absl::Base64Unescape({text.data(), text.size()}, &bytes) || absl::Base64Escape(bytes) != text)
    return std::nullopt;
  return bytes;
}

bool isIntegerKind(BuiltinKind kind) { return kind >= BuiltinKind::U8 && kind <= BuiltinKind::S64; }

std::int64_t loadInteger(BuiltinKind kind, void const* at) {
  return withInteger(kind, [at](auto* type) {
    return static_cast<std::int64_t>(as<std::remove_pointer_t<decltype(type)>>(at));
  });
}

void storeInteger(BuiltinKind kind, void* at, std::int64_t value) {
  withInteger(kind, [at, value](auto* type) {
    using T = std::remove_pointer_t<decltype(type)>;
    *static_cast<T*>(at) = static_cast<T>(value);
    return 0;
  });
}

std::string printBuiltin(BuiltinKind kind, void const* at, bool plain) {
  switch (kind) {
  case BuiltinKind::Bool: return as<bool>(at) ? "true" : "false";
  case BuiltinKind::Char: return std::string(1, as<char>(at));
  case BuiltinKind::Float: return printFloat(as<float>(at));
  case BuiltinKind::Double: return printFloat(as<double>(at));
  case BuiltinKind::String: {
    std::string_view const text = as<String>(at).view();
    return plain ? std::string(text) : fmt::format("\"{}\"", text);
  }
  case BuiltinKind::JsonString: {
    std::string_view const text = as<JsonString>(at).text.view();
    return plain ? std::string(text) : fmt::format("\"{}\"", text);
  }
  case BuiltinKind::Bytes: return base64(as<Bytes>(at).view());
  case BuiltinKind::Seconds: return fmt::format("{}", as<Seconds>(at).nanoseconds());
  case BuiltinKind::Time: return fmt::format("{}", as<Time>(at).nanoseconds());
  case BuiltinKind::U8:
  case BuiltinKind::S8:
  case BuiltinKind::U16:
  case BuiltinKind::S16:
  case BuiltinKind::U32:
  case BuiltinKind::S32:
  case BuiltinKind::U64:
  case BuiltinKind::S64:
    return withInteger(
        kind, [at](auto* type) { return fmt::format("{}", as<std::remove_pointer_t<decltype(type)>>(at)); });
  case BuiltinKind::None: break;
  }
  throwError("a value of no kind was to be printed");
}

std::optional<std::string> parseBuiltin(TypeDesc const& type, std::string_view text, void* to) {
  std::string_view inner;
  switch (type.builtin) {
  case BuiltinKind::U8:
  case BuiltinKind::S8:
  case BuiltinKind::U16:
  case BuiltinKind::S16:
  case BuiltinKind::U32:
  case BuiltinKind::S32:
  case BuiltinKind::U64:
  case BuiltinKind::S64:
    return withInteger(type.builtin, [&](auto* kind) {
      return parseInteger<std::remove_pointer_t<decltype(kind)>>(type, text, to);
    });
  case BuiltinKind::Bool: return parseBool(type, text, to);
  case BuiltinKind::Char: return parseChar(type, text, to);
  case BuiltinKind::Float: return parseFloat<float>(type, text, to);
  case BuiltinKind::Double: return parseFloat<double>(type, text, to);
  case BuiltinKind::String:
    if (auto error = parseQuoted(type, text, inner)) return error;
    *static_cast<String*>(to) = String(inner);
    return std::nullopt;
  case BuiltinKind::JsonString:
    if (auto error = parseQuoted(type, text, inner)) return error;
    static_cast<JsonString*>(to)->text = String(inner);
    return std::nullopt;
  case BuiltinKind::Bytes: return parseBytes(type, text, to);
  case BuiltinKind::Seconds: return parseNanoseconds<std::int64_t, Seconds>(type, text, to);
  case BuiltinKind::Time: return parseNanoseconds<std::uint64_t, Time>(type, text, to);
  case BuiltinKind::None: break;
  }
  return mismatch(type, text, "a known scalar kind");
}

} // namespace Impl

TypeDesc& builtinDesc(BuiltinKind kind) {
  static Impl::BuiltinTable const table;
  return *table.types[static_cast<std::size_t>(kind)];
}

} // namespace Kel
