// Kstd::Result: a value, or the reason why there is none.
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "Kstd/Export.h"

namespace Kstd {

namespace Impl {
// Reports which accessor was called on the wrong alternative, and the error where it is a text, then aborts.
[[noreturn]] KTD_EXPORT void resultAccessFailed(char const* what, std::string_view error = {});
} // namespace Impl

// Wraps an error on its way into a Result, so that `return Kstd::Err(text);` is unambiguous even when the
// value and the error have the same type.
template <typename E>
struct Err {
  // Takes the error over.
  explicit Err(E error) : error_(std::move(error)) {}
  E error_; // moved into the Result
};

// The outcome of an operation that can fail: either a value of type T or an error of type E, never both,
// never neither. A plain value type: it owns what it holds, copies and moves as T and E do, has no thread of
// its own.
//
// A function returns its value directly, and its error as `Kstd::Err(error)`. When T and E differ an error
// may also be returned directly. T may be `void`: then a default-constructed Result is success.
//
// A moved-from Result keeps its alternative, holding a moved-from value.
template <typename T, typename E>
class [[nodiscard]] Result {
public:
  using ValueType = T; // what it holds when all went well
  using ErrorType = E; // what it holds otherwise

  // Implicit on purpose: `return value;` is what a caller writes. A type that converts to T only explicitly
  // does not.
  template <typename U = T>
  requires(std::is_convertible_v<U&&, T> && !std::is_same_v<std::remove_cvref_t<U>, Result> &&
           (std::is_same_v<T, E> || !std::is_same_v<std::remove_cvref_t<U>, E>)) Result(U&& value)
      : held_(std::in_place_index<0>, std::forward<U>(value)) {}

  // An error. Implicit on purpose, as all of these.
  template <typename U>
  requires std::is_convertible_v<U&&, E> Result(Err<U> error)
      : held_(std::in_place_index<1>, std::move(error.error_)) {}

  // Likewise.
  Result(E error) requires(!std::is_same_v<T, E>) : held_(std::in_place_index<1>, std::move(error)) {}

  // There is no error.
  bool ok() const noexcept { return held_.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  // The value. REQUIRES ok(); the process is aborted otherwise. The reference lives as long as this Result.
  T& value() & { return requireValue(*this); }
  T const& value() const& { return requireValue(*this); }
  T&& value() && { return std::move(requireValue(*this)); }

  // The error. REQUIRES !ok(); the process is aborted otherwise. The reference lives as long as this Result.
  E& error() & { return requireError(*this); }
  E const& error() const& { return requireError(*this); }
  E&& error() && { return std::move(requireError(*this)); }

  // The value, or `fallback` when there is none.
  template <typename U>
  T valueOr(U&& fallback) const& {
    return ok() ? *std::get_if<0>(&held_) : static_cast<T>(std::forward<U>(fallback));
  }

  T& operator*() & { return value(); }
  T const& operator*() const& { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  T* operator->() { return &value(); }
  T const* operator->() const { return &value(); }

private:
  template <typename Self>
  static auto& requireValue(Self& self) {
    auto* value = std::get_if<0>(&self.held_);
    if (!value) [[unlikely]] {
      std::string_view text;
      if constexpr (std::is_convertible_v<E const&, std::string_view>) text = std::get<1>(self.held_);
      Impl::resultAccessFailed("value() of a Result that holds an error", text);
    }
    return *value;
  }

  template <typename Self>
  static auto& requireError(Self& self) {
    auto* error = std::get_if<1>(&self.held_);
    if (!error) [[unlikely]]
      Impl::resultAccessFailed("error() of a Result that holds a value");
    return *error;
  }

  std::variant<T, E> held_;
};

// Success without a value, or an error.
template <typename E>
class [[nodiscard]] Result<void, E> {
public:
  using ValueType = void; // nothing
  using ErrorType = E;    // what it holds otherwise

  Result() : held_(std::in_place_index<0>) {}

  // An error. Implicit on purpose, as all of these.
  template <typename U>
  requires std::is_convertible_v<U&&, E> Result(Err<U> error)
      : held_(std::in_place_index<1>, std::move(error.error_)) {}

  // Likewise.
  Result(E error) : held_(std::in_place_index<1>, std::move(error)) {}

  // There is no error.
  bool ok() const noexcept { return held_.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  // The error. REQUIRES !ok(); the process is aborted otherwise. The reference lives as long as this Result.
  E const& error() const {
    auto* error = std::get_if<1>(&held_);
    if (!error) [[unlikely]]
      Impl::resultAccessFailed("error() of a Result that holds a value");
    return *error;
  }

private:
  std::variant<std::monostate, E> held_;
};

} // namespace Kstd
