#include "model/metadata_reader.h"

#include "model/file_system.h"
#include "model/file_type_detector.h"
#include "model/pipeline_error.h"

namespace tavrin {

bool MetadataReader::canRead(const std::filesystem::path& url) const {
    if (!fs::isReadableFile(url)) return false;
    std::string ext = url.extension().string();
    if (!ext.empty()) ext.erase(0, 1);
    auto type = fileTypeFromExtension(ext);
    return type && supportedTypes().count(*type) > 0;
}

FileType MetadataReader::detectFileType(const std::filesystem::path& url) {
    try {
        return FileTypeDetector::detect(url);
    } catch (...) {
        throw PipelineError::fileTypeUnknown(url);
    }
}

}  // namespace tavrin
