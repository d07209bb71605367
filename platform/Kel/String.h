// Kel::String and Kel::Bytes: the model's immutable texts and byte strings.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "Kel/RefCount.h"
#include "Kstd/Export.h"

namespace Kel {

namespace Impl {

// Shared, counted characters behind a String or Bytes; the characters follow the header and end with a NUL.
// Trees hold many short ones: an interned text has its hash before the header, others have none.
struct TextRep {
  static constexpr std::size_t kMaxSize = 0x7fff'ff00;
  static constexpr std::size_t kWord = sizeof(std::uint64_t); // so many bytes are there, of short texts zeros

  RefCount refs;
  std::uint32_t size : 31;
  std::uint32_t interned : 1;

  [[nodiscard]] char const* chars() const noexcept { return reinterpret_cast<char const*>(this + 1); }
  // The first characters, in the order of the texts but for those that go on alike.
  [[nodiscard]] std::uint64_t firstWord() const noexcept {
    std::uint64_t word;
    std::memcpy(&word, chars(), kWord);
    return __builtin_bswap64(word);
  }
  // REQUIRES an interned text.
  [[nodiscard]] std::uint64_t hash() const noexcept {
    return *(reinterpret_cast<std::uint64_t const*>(this) - 1);
  }
  KTD_EXPORT static TextRep* make(std::string_view text);   // with one reference; null for an empty text
  KTD_EXPORT static TextRep* intern(std::string_view text); // likewise, the shared copy
  KTD_EXPORT static void dispose(TextRep* rep) noexcept;
};

// Owns one reference to a TextRep. Null stands for the empty text.
class TextHold {
public:
  constexpr TextHold() noexcept = default;
  explicit constexpr TextHold(TextRep* owned) noexcept : rep_(owned) {}
  TextHold(TextHold const& other) noexcept : rep_(other.rep_) {
    if (rep_ != nullptr) rep_->refs.add();
  }
  TextHold(TextHold&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}
  TextHold& operator=(TextHold other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }
  ~TextHold() {
    if (rep_ != nullptr && rep_->refs.drop()) TextRep::dispose(rep_);
  }
  [[nodiscard]] TextRep* get() const noexcept { return rep_; }
  [[nodiscard]] std::string_view view() const noexcept {
    return rep_ == nullptr ? std::string_view() : std::string_view(rep_->chars(), rep_->size);
  }

private:
  TextRep* rep_ = nullptr;
};

} // namespace Impl

// An immutable text (any bytes, NUL included; less than 2 GiB). Copying shares the characters. 8 bytes wide.
class KTD_EXPORT String {
public:
  constexpr String() noexcept = default;
  // Copies the characters. Implicit: a text is a String.
  String(std::string_view text) : hold_(Impl::TextRep::make(text)) {}
  String(char const* text) : String(std::string_view(text)) {}
  String(std::string const& text) : String(std::string_view(text)) {}

  [[nodiscard]] std::size_t size() const noexcept { return view().size(); }    // in bytes
  [[nodiscard]] bool empty() const noexcept { return hold_.get() == nullptr; } // no characters
  // The characters, ended by a NUL; valid while any String shares them.
  [[nodiscard]] char const* data() const noexcept { return empty() ? "" : hold_.get()->chars(); }
  // The same, under the name that C programs know.
  [[nodiscard]] char const* c_str() const noexcept { return data(); }
  // Valid while anybody shares it.
  [[nodiscard]] std::string_view view() const noexcept { return hold_.view(); }
  operator std::string_view() const noexcept { return view(); }
  operator std::string() const { return std::string(view()); }
  // A copy.
  [[nodiscard]] std::string str() const { return std::string(view()); }

  // The interned copy: equal texts share one object for as long as anybody holds it, and compare by address.
  [[nodiscard]] String dedup() const;
  [[nodiscard]] static String dedup(std::string_view text) { return String(Impl::TextRep::intern(text)); }
  // It is interned.
  [[nodiscard]] bool isDedup() const noexcept { return empty() || hold_.get()->interned != 0; }

  // Byte by byte:
  [[nodiscard]] bool startsWith(std::string_view prefix) const noexcept { return view().starts_with(prefix); }
  [[nodiscard]] bool endsWith(std::string_view suffix) const noexcept { return view().ends_with(suffix); }
  // This text with `tail` appended, as a new String.
  [[nodiscard]] String merge(std::string_view tail) const;

  // Equal texts have equal hashes, within one process.
  [[nodiscard]] std::uint64_t hash() const noexcept;

  friend bool operator==(String const& a, String const& b) noexcept {
    if (a.hold_.get() == b.hold_.get()) return true;
    if (a.empty() || b.empty()) return false;
    if ((a.hold_.get()->interned & b.hold_.get()->interned) != 0) return false;
    return a.view() == b.view();
  }
  friend bool operator==(String const& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(String const& a, std::string const& b) noexcept { return a.view() == b; }
  friend bool operator==(String const& a, char const* b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(String const& a, String const& b) noexcept {
    if (a.empty() || b.empty()) return b.empty() <=> a.empty();
    std::uint64_t const left = a.hold_.get()->firstWord();
    std::uint64_t const right = b.hold_.get()->firstWord();
    return left != right ? left <=> right : a.view() <=> b.view();
  }
  friend std::strong_ordering operator<=>(String const& a, std::string_view b) noexcept {
    return a.view() <=> b;
  }
  friend std::strong_ordering operator<=>(String const& a, std::string const& b) noexcept {
    return a.view() <=> std::string_view(b);
  }
  friend std::strong_ordering operator<=>(String const& a, char const* b) noexcept {
    return a.view() <=> std::string_view(b);
  }
  template <class H>
  friend H AbslHashValue(H h, String const& s) {
    return H::combine(std::move(h), s.view());
  }

private:
  explicit String(Impl::TextRep* owned) noexcept : hold_(owned) {}
  Impl::TextHold hold_;
};

// An immutable byte string. Copying shares the bytes. 8 bytes wide.
class KTD_EXPORT Bytes {
public:
  constexpr Bytes() noexcept = default;
  // A copy.
  explicit Bytes(std::string_view bytes) : hold_(Impl::TextRep::make(bytes)) {}
  // The interned copy: equal ones share one object for as long as anybody holds it.
  [[nodiscard]] static Bytes dedup(std::string_view bytes) {
    Bytes shared;
    shared.hold_ = Impl::TextHold(Impl::TextRep::intern(bytes));
    return shared;
  }

  [[nodiscard]] bool empty() const noexcept { return hold_.get() == nullptr; }        // none
  [[nodiscard]] char const* bytesPtr() const noexcept { return hold_.view().data(); } // not ended by a NUL
  [[nodiscard]] std::size_t length() const noexcept { return hold_.view().size(); }   // in bytes
  // Valid while anybody shares it.
  [[nodiscard]] std::string_view view() const noexcept { return hold_.view(); }

  friend bool operator==(Bytes const& a, Bytes const& b) noexcept { return a.view() == b.view(); }
  friend std::strong_ordering operator<=>(Bytes const& a, Bytes const& b) noexcept {
    return a.view() <=> b.view();
  }

private:
  Impl::TextHold hold_;
};

} // namespace Kel

template <>
struct std::hash<Kel::String> {
  std::size_t operator()(Kel::String const& s) const noexcept { return s.hash(); }
};
