// Responses on one line, for traces.
#pragma once

#include "Kstd/Export.h"
#include "Tovak/String.h"

namespace gnmi {
class ScalarArray;
class SubscribeResponse;
class TypedValue;
} // namespace gnmi

namespace Ondra {

// "timestamp:5 prefix:/a update0 ( path:/b uint_val:1 ) delete0 ( path:/c ) ", each part ended by a blank;
// "sync_response"; or "unsupported response". Texts and bytes are written as they are. Any thread.
[[nodiscard]] KTD_EXPORT Tovak::String
subscribeResponseToCompactString(gnmi::SubscribeResponse const& response);
// "uint_val:1".
[[nodiscard]] KTD_EXPORT Tovak::String typedValueToCompactString(gnmi::TypedValue const& value);
// "[ uint_val:1, uint_val:2 ]".
[[nodiscard]] KTD_EXPORT Tovak::String leafListToCompactString(gnmi::ScalarArray const& array);

} // namespace Ondra
