#pragma once
// PNG chunks (ISO/IEC 15948): what they report, and the container rebuilt from the chunks a
// decoder needs plus the metadata that survived filtering. Every chunk's CRC is checked.

#include "image/image_properties.h"

namespace tavrin::image::pngContainer {

Properties readProperties(ByteSpan png);

// IHDR, PLTE, tRNS, colour chunks, pHYs, bKGD, the animation chunks, IDAT and IEND as they are;
// iCCP under a neutral name; eXIf, text chunks, tIME and XMP only for what survives in `filtered`.
Bytes rebuild(ByteSpan png, const Properties& filtered);

}  // namespace tavrin::image::pngContainer
