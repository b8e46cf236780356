#pragma once
// Reading a whole image file into memory, read-only.

#include <filesystem>

#include "image/image_bytes.h"

namespace tavrin::image {

// Throws `FileSystemError` when the file cannot be read.
Bytes readImageFile(const std::filesystem::path& url);

}  // namespace tavrin::image
