#pragma once
// JPEG (ITU T.81) marker segments: what they report, and the two ways of writing them back.
// Neither way touches the coded image: tables, frame and scan headers and the entropy-coded
// data are copied byte for byte.

#include <vector>

#include "image/image_properties.h"

namespace tavrin::image::jpegContainer {

// The properties of the single frame. Data that ends inside the scan still reads.
Properties readProperties(ByteSpan jpeg);

// The coded image with a new metadata prefix built from `filtered`: a JFIF header without
// thumbnail, Exif, ICC, XMP, Photoshop/IPTC and comment from what survived, and the Adobe
// colour segment. Unknown APPn, MPF, extended XMP and data after EOI are dropped. Data that
// ends before EOI throws `ImageFormatError`.
Bytes rebuild(ByteSpan jpeg, const Properties& filtered);

// The coded image with only the structural facts: JFIF density, an Exif block holding the
// orientation, the ICC profile when its name is a generic one, and the Adobe colour segment.
Bytes losslessStrip(ByteSpan jpeg);

// True when both are complete JPEGs whose decoding depends on the same bytes: tables, frame and
// scan headers, restart markers, the Adobe colour segment and the entropy-coded data, in the same
// order. The metadata segments around them may differ. Never throws.
bool sameCodedImage(ByteSpan a, ByteSpan b);

// The byte range of entropy-coded data of every scan, for tests and benchmarks.
std::vector<ByteSpan> entropyCodedSegments(ByteSpan jpeg);

}  // namespace tavrin::image::jpegContainer
