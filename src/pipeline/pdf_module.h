#pragma once
// The PDF subsystem, loaded on first use from the module installed next to the program
// (<program dir>/../lib/tavrin/tavrin-pdf.so). Inspecting or cleaning anything else never loads
// it. The reader and writer stand in for the module's own until a PDF needs them.

#include <memory>

#include "model/format_registry.h"
#include "model/metadata_reader.h"
#include "pdf/pdf_support.h"

namespace tavrin::pdfModule {

// The loaded support. Throws PDFPasswordError(cannotOpenDocument), with the reason as its
// detail, when the module cannot be loaded; every PDF operation then fails with that message
// and nothing is written.
const PDFSupport& support();

std::shared_ptr<const MetadataReader> reader();
std::shared_ptr<const MetadataWriter> writer();

}  // namespace tavrin::pdfModule

namespace tavrin {

// Puts the module's stand-in reader and writer into `registry`; nothing is loaded yet.
void registerPDFFormats(FormatRegistry& registry);

}  // namespace tavrin
