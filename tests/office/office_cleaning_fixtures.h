#pragma once
// Dirty documents of each kind for the writer's tests, the sample files and the benchmark: an
// author, comments, tracked changes, revision ids, hidden text, a thumbnail, a photo with its
// camera and position, and for workbooks and presentations a hidden sheet or slide.

#include <cstdint>
#include <string>
#include <vector>

#include "office_fixtures.h"

namespace tavrin::testing {

// `photo` is the bytes of "word/media/image1.jpeg" (or the xl/ppt equivalent); empty for none.
OfficePackageBuilder dirtyDocument(const std::vector<std::uint8_t>& photo);
OfficePackageBuilder dirtyWorkbook(const std::vector<std::uint8_t>& photo);
OfficePackageBuilder dirtyPresentation(const std::vector<std::uint8_t>& photo);

// A document with `photos` pictures in its body, each of the given bytes under its own name.
OfficePackageBuilder documentWithPhotos(const std::vector<std::vector<std::uint8_t>>& photos);

// The text a reader sees in each kind, as the fixtures write it.
inline constexpr const char* documentBodyText = "Quarterly plan";

}  // namespace tavrin::testing
