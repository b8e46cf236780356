#pragma once
// Decides which reader or writer serves a file, and refuses to clean any format whose removal is
// not verified (the strict gate). It writes no file itself; writers create and verify outputs.

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>

#include "model/format_registry.h"
#include "model/metadata_reader.h"

namespace tavrin {

class EngineConfiguration {
public:
    static EngineConfiguration standard() { return EngineConfiguration(std::nullopt); }
    static EngineConfiguration pro(std::string exifToolPath) { return EngineConfiguration(std::move(exifToolPath)); }
    bool isPro() const { return exifToolPath_.has_value(); }
    // The external tool's path for `pro`; absent for `standard`.
    const std::optional<std::string>& exifToolPath() const { return exifToolPath_; }
    // How long one run of the external tool may take before it is killed.
    std::chrono::seconds exifToolTimeout() const { return exifToolTimeout_; }
    EngineConfiguration withExifToolTimeout(std::chrono::seconds timeout) const {
        EngineConfiguration copy = *this;
        copy.exifToolTimeout_ = timeout;
        return copy;
    }
    bool operator==(const EngineConfiguration&) const = default;

private:
    explicit EngineConfiguration(std::optional<std::string> path) : exifToolPath_(std::move(path)) {}
    std::optional<std::string> exifToolPath_;
    std::chrono::seconds exifToolTimeout_{60};
};

// Safe to call from several threads at once: the registries are guarded, and readers and
// writers run outside the lock so that several cleans proceed in parallel.
class CleaningPipeline : public FormatRegistry {
public:
    // An empty pipeline: it serves no type until components are registered
    // (registerNativeFormats fills it with the system's own).
    CleaningPipeline() = default;

    // Throws PipelineError; a reader's own failure arrives as `readFailed`.
    MetadataTree inspect(const std::filesystem::path& url) const;
    // Cleans into `outputDirectory` under the source's own name. Throws PipelineError.
    CleaningResult clean(const std::filesystem::path& sourceURL, const std::filesystem::path& outputDirectory,
                         const CleaningProfile& profile) const;

    // The checks inspect and clean make before any reader runs: a readable regular file (a named
    // pipe, a device or a folder is refused without blocking), its type detected from the checked
    // descriptor, its size within that type's limit. Returns the type. Throws PipelineError.
    FileType checkSource(const std::filesystem::path& url) const;

    void registerReader(std::shared_ptr<const MetadataReader> reader) override;
    void registerWriter(std::shared_ptr<const MetadataWriter> writer) override;
    void registerReaderFor(FileType type, std::shared_ptr<const MetadataReader> reader) override;
    void registerWriterFor(FileType type, std::shared_ptr<const MetadataWriter> writer) override;
    bool hasReader(FileType type) const override { return reader(type) != nullptr; }
    bool hasWriter(FileType type) const override { return writer(type) != nullptr; }

    std::set<FileType> supportedInspectionTypes() const;
    // Types with both a reader and a writer. The strict gate is not consulted, so types that
    // `clean` refuses may be listed; ask FormatCapabilities to predict a refusal.
    std::set<FileType> supportedCleaningTypes() const;

private:
    std::shared_ptr<const MetadataReader> reader(FileType type) const;
    std::shared_ptr<const MetadataWriter> writer(FileType type) const;

    mutable std::shared_mutex mutex_;
    std::map<FileType, std::shared_ptr<const MetadataReader>> readers_;
    std::map<FileType, std::shared_ptr<const MetadataWriter>> writers_;
};

}  // namespace tavrin
