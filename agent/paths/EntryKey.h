// The key of a list entry as one text: of a single key its own; the values of several, joined so that they
// can be told apart again. Pure: any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/GenericIf.h"
#include "agent/paths/TypeTree.h"

namespace Agent {

[[nodiscard]] std::string joinedKey(std::span<std::string const> values);
// As many values as were joined. REQUIRES count > 0.
[[nodiscard]] std::vector<std::string> keyValues(std::string_view key, std::size_t count);
// One of them.
[[nodiscard]] std::string keyValue(std::string_view key, std::size_t count, std::size_t at);

// The text of a key of the model.
[[nodiscard]] std::string keyText(Kel::KelAttr list, Kel::GenericIf const& key);
// Its values, one for each key leaf.
[[nodiscard]] std::vector<std::string> keyTexts(Kel::KelAttr list, Kel::GenericIf const& key);
// The key of the model that the values mean; null for values that are none.
[[nodiscard]] Kel::Ptr<Kel::GenericIf const> keyHandle(Kel::KelAttr list,
                                                       std::span<std::string const> values);

// Whether the text is a key of the model, of that type; texts always are.
[[nodiscard]] bool isKeyText(Kel::KelType type, std::string const& text);

// How walks print the value of a key leaf that a path gives as `text`; what is wrong with it otherwise.
[[nodiscard]] Kstd::Result<std::string, std::string> canonicalKeyText(Kel::KelType type, LeafInfo const* leaf,
                                                                      std::string const& text);

} // namespace Agent
