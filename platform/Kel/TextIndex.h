// Kel::Impl::TextIndex: where in an array a text stands; what HashMap2018 keeps for many keys. Its table is
// out of sight, so that who includes a path does not include a hash table.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "Kstd/Export.h"

namespace Kel::Impl {

// Refers to the texts: their holder keeps them where they are. Memory that runs out ends the process.
class KTD_EXPORT TextIndex {
public:
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  TextIndex();
  ~TextIndex();
  TextIndex(TextIndex const&) = delete;
  TextIndex& operator=(TextIndex const&) = delete;

  [[nodiscard]] std::size_t position(std::string_view text) const; // or kNowhere
  void positionIs(std::string_view text, std::size_t position);    // anew, or another one
  void del(std::string_view text);

private:
  struct Table;
  std::unique_ptr<Table> table_;
};

} // namespace Kel::Impl
