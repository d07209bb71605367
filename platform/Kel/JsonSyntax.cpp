// Whether a text is one JSON value, by descent of at most 128 levels, UTF-8 included. Nothing is allocated or
// made of it.
#include "Kel/Text.h"
#include "Kstd/Utf8.h"

namespace Kel::Impl {
namespace {

// Takes one JSON value off the front of a text; nothing is made of it.
class JsonSyntax {
public:
  explicit JsonSyntax(std::string_view text) : rest_(text) {}
  [[nodiscard]] bool isOneValue() { return value(kLevels) && (blanks(), rest_.empty()); }

private:
  static constexpr int kLevels = 128;

  bool value(int levels) {
    blanks();
    switch (rest_.empty() ? '\0' : rest_.front()) {
    case '{': return levels > 0 && list('{', '}', [&] { return text() && next(':') && value(levels - 1); });
    case '[': return levels > 0 && list('[', ']', [&] { return value(levels - 1); });
    case '"': return text();
    case 't': return word("true");
    case 'f': return word("false");
    case 'n': return word("null");
    default: return number();
    }
  }
  template <class Member>
  bool list(char open, char close, Member const& member) {
    if (!next(open)) return false;
    if (next(close)) return true;
    do {
      if (!member()) return false;
    } while (next(','));
    return next(close);
  }
  bool text() {
    if (!next('"')) return false;
    while (!take('"')) {
      std::size_t const size = rest_.empty() ? 0 : Kstd::utf8CharacterSize(rest_);
      if (size == 0 || static_cast<unsigned char>(rest_.front()) < 0x20) return false;
      bool const escapes = rest_.front() == '\\';
      rest_.remove_prefix(size);
      if (escapes && !escape()) return false;
    }
    return true;
  }
  bool escape() {
    if (!take('u')) return takeAny("\"\\/bfnrt");
    for (int digit = 0; digit < 4; ++digit)
      if (!takeAny("0123456789abcdefABCDEF")) return false;
    return true;
  }
  bool number() {
    take('-');
    if (!take('0') && !digits()) return false;
    if (take('.') && !digits()) return false;
    if (!takeAny("eE")) return true;
    takeAny("+-");
    return digits();
  }
  bool digits() {
    std::size_t const before = rest_.size();
    while (takeAny("0123456789")) {
    }
    return rest_.size() != before;
  }

  void blanks() {
    while (takeAny(" \t\n\r")) {
    }
  }
  // After blanks.
  bool next(char wanted) { return blanks(), take(wanted); }
  bool take(char wanted) { return takeAny({&wanted, 1}); }
  bool takeAny(std::string_view wanted) {
    bool const found = !rest_.empty() && wanted.find(rest_.front()) != std::string_view::npos;
    if (found) rest_.remove_prefix(1);
    return found;
  }
  bool word(std::string_view wanted) {
    bool const found = rest_.starts_with(wanted);
    if (found) rest_.remove_prefix(wanted.size());
    return found;
  }

  std::string_view rest_;
};

} // namespace

bool isJson(std::string_view text) { return JsonSyntax(text).isOneValue(); }

} // namespace Kel::Impl
