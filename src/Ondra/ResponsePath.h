// Ondra::ResponsePath: the path of a response, for whoever asks for it.
#pragma once

#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"

namespace Ondra {

// Made when it is asked for: most receivers want its bytes alone. Refers to what it is told of, which
// outlives it; valid as long as the response. Scheduler thread only.
class KTD_EXPORT ResponsePath {
public:
  // That path.
  explicit ResponsePath(Kel::Ptr<Path const> const& path) noexcept : path_(&path) {}
  // The one above, with that element more.
  ResponsePath(ResponsePath const& above, Path::ElemPtr const& elem) noexcept
      : above_(&above)
      , elem_(&elem) {}
  ResponsePath(ResponsePath const&) = delete;
  ResponsePath& operator=(ResponsePath const&) = delete;

  [[nodiscard]] Kel::Ptr<Path const> const& get() const {
    if (path_ == nullptr) [[unlikely]]
      make();
    return *path_;
  }
  [[nodiscard]] Path const& operator*() const { return *get(); }
  [[nodiscard]] Path const* operator->() const { return get().get(); }

private:
  void make() const;

  mutable Kel::Ptr<Path const> const* path_ = nullptr; // null: not made
  ResponsePath const* above_ = nullptr;
  Path::ElemPtr const* elem_ = nullptr;
  mutable Kel::Ptr<Path const> made_;
};

} // namespace Ondra
