#include "pipeline/cleaning_pipeline.h"

#include <mutex>

#include "model/file_system.h"
#include "model/file_type_detector.h"
#include "model/pipeline_error.h"
#include "model/source_file.h"

namespace tavrin {

namespace {

// Maps a detection failure to the pipeline's vocabulary.
FileType detectForPipeline(const SourceFile& source) {
    const auto& url = source.path();
    try {
        return FileTypeDetector::detect(source);
    } catch (const FileTypeDetectionError& e) {
        if (e.errorCase() == FileTypeDetectionError::Case::encryptedOfficeDocument)
            throw PipelineError::encryptedOfficeDocument(url);
        throw PipelineError::fileTypeUnknown(url);
    } catch (...) {
        throw PipelineError::fileTypeUnknown(url);
    }
}

// Opens the source through the checks every reader relies on: a regular file, its type
// detected from the checked descriptor, its size within the type's limit. A named pipe, a
// device or an oversized file is refused here, before any reader runs.
FileType checkedSourceType(const std::filesystem::path& url) {
    if (!fs::isReadableFile(url)) throw PipelineError::sourceFileNotAccessible(url);
    const SourceFile source = SourceFile::open(url);
    const FileType type = detectForPipeline(source);
    source.requireWithinSizeLimit(type);
    return type;
}

}  // namespace

FileType CleaningPipeline::checkSource(const std::filesystem::path& url) const { return checkedSourceType(url); }

MetadataTree CleaningPipeline::inspect(const std::filesystem::path& url) const {
    const FileType type = checkedSourceType(url);
    auto r = reader(type);
    if (!r) throw PipelineError::noReaderAvailable(type);
    try {
        return r->readMetadata(url);
    } catch (const PipelineError& e) {
        // A reader that already says "Failed to read metadata from …" is not wrapped again.
        if (e.errorCase() == PipelineError::Case::readFailed) throw;
        throw PipelineError::readFailed(url, std::current_exception());
    } catch (...) {
        throw PipelineError::readFailed(url, std::current_exception());
    }
}

CleaningResult CleaningPipeline::clean(const std::filesystem::path& sourceURL,
                                       const std::filesystem::path& outputDirectory,
                                       const CleaningProfile& profile) const {
    if (!fs::isReadableFile(sourceURL)) throw PipelineError::sourceFileNotAccessible(sourceURL);
    if (!fs::isDirectory(outputDirectory)) throw PipelineError::outputDirectoryNotAccessible(outputDirectory);
    const FileType type = checkedSourceType(sourceURL);
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
