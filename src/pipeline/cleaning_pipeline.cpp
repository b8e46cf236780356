#include "pipeline/cleaning_pipeline.h"

#include <mutex>

#include "model/file_system.h"
#include "model/file_type_detector.h"
#include "model/pipeline_error.h"

namespace tavrin {

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

void CleaningPipeline::registerReaderFor(FileType type, std::shared_ptr<const MetadataReader> r) {
    std::unique_lock lock(mutex_);
    readers_[type] = std::move(r);
}

void CleaningPipeline::registerWriterFor(FileType type, std::shared_ptr<const MetadataWriter> w) {
    std::unique_lock lock(mutex_);
    writers_[type] = std::move(w);
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
