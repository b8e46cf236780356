#include "engine/cleaning_pipeline.h"

#include <mutex>

#include "engine/file_system.h"
#include "engine/file_type_detector.h"
#include "engine/pdf_module.h"
#include "engine/pipeline_error.h"
#include "av/av_metadata_reader.h"
#include "av/av_metadata_writer.h"
#include "exiftool/exiftool_reader.h"
#include "exiftool/exiftool_writer.h"
#include "image/image_metadata_reader.h"
#include "image/image_metadata_writer.h"
#include "office/office_metadata_reader.h"
#include "office/office_metadata_writer.h"

namespace tavrin {

CleaningPipeline::CleaningPipeline(const EngineConfiguration& configuration) {
    registerNativeComponents();
    // The external-tool components join for a `pro` configuration, filling only the types that
    // no native component serves. They never open the strict gate: `clean` still refuses every
    // type that is not verifiedCleanable.
    if (const auto& exifToolPath = configuration.exifToolPath()) {
        ProcessLimits limits;
        limits.timeout = configuration.exifToolTimeout();
        auto exifToolReader = std::make_shared<const ExifToolReader>(*exifToolPath, limits);
        auto exifToolWriter = std::make_shared<const ExifToolWriter>(*exifToolPath, limits);
        std::unique_lock lock(mutex_);
        for (FileType type : fileTypes::allCases()) {
            const auto capabilities = FormatCapabilities::capabilities(type);
            if (!capabilities.canReadNatively || !readers_.count(type)) readers_[type] = exifToolReader;
            if (!capabilities.canWriteNatively || !writers_.count(type)) writers_[type] = exifToolWriter;
        }
    }
}

// Every native reader and writer, in the order the system defines. Each format adds its own
// line here; nothing registers itself. PDF's stand in for the module's until a PDF needs them.
void CleaningPipeline::registerNativeComponents() {
    registerReader(std::make_shared<ImageMetadataReader>());
    registerWriter(std::make_shared<ImageMetadataWriter>());
    registerReader(pdfModule::reader());
    registerReader(std::make_shared<OfficeMetadataReader>());
    registerWriter(std::make_shared<OfficeMetadataWriter>());
    registerWriter(pdfModule::writer());
    registerReader(std::make_shared<AVMetadataReader>());
    registerWriter(std::make_shared<AVMetadataWriter>());
}

namespace {

// Maps a detection failure to the pipeline's vocabulary.
FileType detectForPipeline(const std::filesystem::path& url) {
    try {
        return FileTypeDetector::detect(url);
    } catch (const FileTypeDetectionError& e) {
        if (e.errorCase() == FileTypeDetectionError::Case::encryptedOfficeDocument)
            throw PipelineError::encryptedOfficeDocument(url);
        throw PipelineError::fileTypeUnknown(url);
    } catch (...) {
        throw PipelineError::fileTypeUnknown(url);
    }
}

}  // namespace

MetadataTree CleaningPipeline::inspect(const std::filesystem::path& url) const {
    if (!fs::isReadableFile(url)) throw PipelineError::sourceFileNotAccessible(url);
    const FileType type = detectForPipeline(url);
    auto r = reader(type);
    if (!r) throw PipelineError::noReaderAvailable(type);
    try {
        return r->readMetadata(url);
    } catch (...) {
        throw PipelineError::readFailed(url, std::current_exception());
    }
}

CleaningResult CleaningPipeline::clean(const std::filesystem::path& sourceURL,
                                       const std::filesystem::path& outputDirectory,
                                       const CleaningProfile& profile) const {
    if (!fs::isReadableFile(sourceURL)) throw PipelineError::sourceFileNotAccessible(sourceURL);
    if (!fs::isDirectory(outputDirectory)) throw PipelineError::outputDirectoryNotAccessible(outputDirectory);
    const FileType type = detectForPipeline(sourceURL);
    if (!FormatCapabilities::capabilities(type).allowsStrictVerifiedCleaning())
        throw PipelineError::formatNotVerifiedForCleaning(type);
    auto w = writer(type);
    if (!w) throw PipelineError::noWriterAvailable(type);
    const auto destination = outputDirectory / sourceURL.filename();
    try {
        return w->cleanMetadata(sourceURL, destination, profile);
    } catch (const PipelineError&) {
        throw;
    } catch (...) {
        throw PipelineError::writeFailed(sourceURL, std::current_exception());
    }
}

void CleaningPipeline::registerReader(std::shared_ptr<const MetadataReader> r) {
    std::unique_lock lock(mutex_);
    for (FileType t : r->supportedTypes()) readers_[t] = r;
}

void CleaningPipeline::registerWriter(std::shared_ptr<const MetadataWriter> w) {
    std::unique_lock lock(mutex_);
    for (FileType t : w->supportedTypes()) writers_[t] = w;
}

std::shared_ptr<const MetadataReader> CleaningPipeline::reader(FileType type) const {
    std::shared_lock lock(mutex_);
    auto it = readers_.find(type);
    return it == readers_.end() ? nullptr : it->second;
}

std::shared_ptr<const MetadataWriter> CleaningPipeline::writer(FileType type) const {
    std::shared_lock lock(mutex_);
    auto it = writers_.find(type);
    return it == writers_.end() ? nullptr : it->second;
}

std::set<FileType> CleaningPipeline::supportedInspectionTypes() const {
    std::shared_lock lock(mutex_);
    std::set<FileType> out;
    for (const auto& [t, _] : readers_) out.insert(t);
    return out;
}

std::set<FileType> CleaningPipeline::supportedCleaningTypes() const {
    std::shared_lock lock(mutex_);
    std::set<FileType> out;
    for (const auto& [t, _] : writers_)
        if (readers_.count(t)) out.insert(t);
    return out;
}

}  // namespace tavrin
