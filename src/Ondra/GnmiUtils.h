// Small functions that the read side, the write side and hosts share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kel/Attr.h"
#include "Kel/Ptr.h"
#include "Kstd/Export.h"
#include "Ondra/Path.h"
#include "Ondra/WalkTypes.h"
#include "Tovak/String.h"

namespace gnmi {
class Notification;
}

namespace Ondra::KelGnmiUtils {

// Stamps a notification, in nanoseconds since the Unix epoch; no unit is converted and nothing is checked.
KTD_EXPORT void populateTimestamp(gnmi::Notification& notification, long timestamp);

// Appends `path` to the deletes of a notification.
KTD_EXPORT void pushDelete(gnmi::Notification& notification, Kel::Ptr<Path const> const& path);

// The texts with `separator` between them.
[[nodiscard]] KTD_EXPORT Tovak::String stringVecJoin(std::vector<Tovak::String> const& texts,
                                                     Tovak::String const& separator);

// A double as the eight bytes of its IEEE 754 binary64 form, most significant first; and back. Any other
// length gives no value:
[[nodiscard]] KTD_EXPORT std::string encodeDoubleVal(double const& value);
[[nodiscard]] KTD_EXPORT std::optional<double> decodeDoubleVal(std::string const& bytes);

// The flags of the walks of a subscription: STREAM the stream, ONCE the snapshot, POLL both. Any other value
// is a fatal assertion.
[[nodiscard]] KTD_EXPORT WalkerFlags requestTypeToFlags(RequestType type);

// The element of an attribute of objects of that type, without keys: shared, kept for the process.
[[nodiscard]] KTD_EXPORT Kel::Ptr<PathElem const> const& attrElem(Kel::KelType type,
                                                                  Kel::KelAttr const& attr);

} // namespace Ondra::KelGnmiUtils
