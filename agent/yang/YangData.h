// Instance documents, JSON by RFC 7951 or XML, that fill what the modules of a run have.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Kstd/Result.h"
#include "agent/yang/ConfigTree.h"

namespace Kel {
class Dir;
} // namespace Kel

namespace Agent {

class YangModel;

struct FilledData {
  std::size_t leaves = 0;         // that were written
  std::size_t leftOut = 0;        // leaves that the documents have and this run leaves out
  std::vector<std::string> notes; // what is wrong, though it is served: with no document at all
  ConfigTree::Nodes configuration;
};

// Writes the documents into the data root that `root` holds, one over the other; what is configuration of
// them together must be valid, where that is checked. The error names the file, and line or path. Before
// anybody walks, on the thread that drives the model.
[[nodiscard]] Kstd::Result<FilledData, std::string> yangDataInto(Kel::Dir& root, YangModel const& model,
                                                                 std::vector<std::string> const& files,
                                                                 bool isChecked = true);

} // namespace Agent
