#pragma once
// A guard for JSON from outside: brackets outside strings are counted without building
// anything, so a parser only builds what passes.

#include <string_view>

namespace tavrin {

// False when arrays and objects nest deeper than `maximumDepth` anywhere in `text`.
bool jsonNestingWithin(std::string_view text, int maximumDepth);

}  // namespace tavrin
