#include "pipeline/native_formats.h"

#include "av/av_formats.h"
#include "exiftool/exiftool_formats.h"
#include "image/image_formats.h"
#include "office/office_formats.h"
#include "pipeline/pdf_module.h"

namespace tavrin {

void registerNativeFormats(FormatRegistry& registry, const EngineConfiguration& configuration) {
    registerImageFormats(registry);
    // PDF's stand in for the module's until a PDF needs them.
    registerPDFFormats(registry);
    registerOfficeFormats(registry);
    registerAVFormats(registry);
    if (const auto& exifToolPath = configuration.exifToolPath())
        registerExifToolFormats(registry, *exifToolPath, configuration.exifToolTimeout());
}

}  // namespace tavrin
