// Lets the general heap fail where a test wants it: operator new is replaced in hostile_sweep_test.cpp.
#pragma once

#include <functional>

struct HeapFaults {
  // Asked at each allocation, of the one thread that tests run on; true: it fails. Empty: none does.
  static inline std::function<bool()> fails;
  static inline bool off = false;

  // While one lives, nothing fails: the code of a test runs.
  class Off {
  public:
    Off() noexcept : before_(off) { off = true; }
    ~Off() { off = before_; }
    Off(Off const&) = delete;
    Off& operator=(Off const&) = delete;

  private:
    bool const before_;
  };
};
