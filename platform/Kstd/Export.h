// The mark of everything that libKelTypeDecoder.so offers to the outside.
//
// The library is compiled with hidden visibility: a class or function without this mark cannot be reached
// from a program or a test that links it. Mark a class as a whole (`class KTD_EXPORT Path`) so that its type
// information is shared too; templates and inline functions need no mark.
#pragma once

#define KTD_EXPORT __attribute__((visibility("default")))
