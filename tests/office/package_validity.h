#pragma once
// The checks a package consumer makes before it opens a document without a repair prompt:
// the ZIP's own checks (no duplicate names, every CRC right), every XML part parses, every
// part has a content type, every internal relationship target exists, every r:id and r:embed
// of a part resolves through that part's relationships, and the content-type overrides name
// only existing parts.

#include <cstdint>
#include <string>
#include <vector>

namespace tavrin::testing {

// One line per problem found; empty for a valid package.
std::vector<std::string> packageValidityProblems(const std::vector<std::uint8_t>& package);

// The text of every `w:t`, `a:t` and spreadsheet `t`/`v` element of the package's XML parts,
// joined in entry order: what a reader would see.
std::string visibleText(const std::vector<std::uint8_t>& package);

}  // namespace tavrin::testing
