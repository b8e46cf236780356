#pragma once
// A last-resort reading of an Info dictionary from its bytes, for the case where the PDF library
// gave up on the whole object (one entry nested too deep, say): the entries whose value is a
// plain string at the top level are still worth reporting. Bounded and iterative: nesting only
// moves a counter.

#include <string>
#include <utility>
#include <vector>

#include "pdf/pdf_byte_layer.h"

namespace tavrin::pdfBytes {

// Bytes read at most from the object's start.
inline constexpr std::size_t rawInfoWindow = 1 << 20;

// The (key without its solidus, decoded UTF-8 value) pairs of the top-level string entries of
// the dictionary of the object whose header starts at `objectStart`, in file order. Empty when
// there is no dictionary there; entries after a point where the syntax breaks are not reported.
std::vector<std::pair<std::string, std::string>> topLevelStringEntries(ByteView data, std::size_t objectStart);

}  // namespace tavrin::pdfBytes
