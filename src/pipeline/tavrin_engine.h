#pragma once
// The engine's public face: inspect a file, clean it into a folder or onto an exact path, and
// clean many files at once. Safe to share between threads.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "pipeline/batch_runner.h"
#include "pipeline/cleaning_pipeline.h"
#include "pdf/pdf_password_policy.h"

namespace tavrin {

class TavrinEngine {
public:
    // An engine with every native format, and the external tool's when the configuration names it.
    explicit TavrinEngine(EngineConfiguration configuration = EngineConfiguration::standard());
    // An engine over a pipeline the caller has filled, such as one with only a test's components.
    TavrinEngine(EngineConfiguration configuration, std::unique_ptr<CleaningPipeline> pipeline);

    const EngineConfiguration& configuration() const { return configuration_; }
    CleaningPipeline& pipeline() { return *pipeline_; }

    // See CleaningPipeline::checkSource: what every operation checks before it reads a byte.
    FileType checkSource(const std::filesystem::path& fileAt) const { return pipeline_->checkSource(fileAt); }
    MetadataTree inspect(const std::filesystem::path& fileAt) const { return pipeline_->inspect(fileAt); }
    CleaningResult clean(const std::filesystem::path& fileAt, const CleaningProfile& with,
                         const std::filesystem::path& outputDirectory) const {
        return pipeline_->clean(fileAt, outputDirectory, with);
    }

    // Cleans into a private temporary folder, then moves the verified file to `outputURL`. On any
    // failure nothing appears at `outputURL`, and an existing file there is left as it was (the
    // move fails with a FileSystemError). The temporary folder goes on every way out.
    CleaningResult cleanToFile(const std::filesystem::path& at, const CleaningProfile& with,
                               const std::filesystem::path& outputURL) const;

    // Cleans every file into one folder; a failing file never stops the others. Results come in
    // the order of `files`; a file that never started (the run was stopped) holds
    // PipelineError::cancelled. `options` bound the pool, report each file as it ends and stop new
    // starts.
    std::vector<BatchCleaningResult> batchClean(const std::vector<std::filesystem::path>& files,
                                                const CleaningProfile& with,
                                                const std::filesystem::path& outputDirectory,
                                                const BatchRunOptions& options = {}) const;

    std::set<FileType> supportedInspectionTypes() const { return pipeline_->supportedInspectionTypes(); }
    std::set<FileType> supportedCleaningTypes() const { return pipeline_->supportedCleaningTypes(); }
    void registerReader(std::shared_ptr<const MetadataReader> reader) { pipeline_->registerReader(std::move(reader)); }
    void registerWriter(std::shared_ptr<const MetadataWriter> writer) { pipeline_->registerWriter(std::move(writer)); }

    // "NAME_cleaned.EXT" in `directory`, or beside the source when absent. Pure: the disk is not
    // consulted, so the name may be taken.
    static std::filesystem::path cleanedFileURL(const std::filesystem::path& source,
                                                const std::optional<std::filesystem::path>& directory = std::nullopt);

    // PDF passwords. Each stages its output like cleanToFile and throws PDFPasswordError (or a
    // FileSystemError from the final move); nothing reaches `outputURL` unless it was verified.
    // False for anything that is not a regular PDF within its size limit (the clean that follows
    // refuses it with the reason).
    static bool isPDFEncrypted(const std::filesystem::path& at);
    CleaningResult cleanEncryptedPDF(const std::filesystem::path& at, const std::string& password,
                                     const CleaningProfile& with, const PDFPasswordPolicy& policy,
                                     const std::filesystem::path& outputURL) const;
    CleaningResult addPasswordToPDF(const std::filesystem::path& at, const CleaningProfile& with,
                                    const PDFPasswordPolicy& policy, const std::filesystem::path& outputURL) const;
    CleaningResult removePasswordFromPDF(const std::filesystem::path& at, const std::string& password,
                                         const CleaningProfile& with, const std::filesystem::path& outputURL) const;

private:
    // Stages `operation(source, stagedOutput)` in a private temporary folder, then moves the
    // result to `outputURL` as cleanToFile does.
    CleaningResult runPasswordOperation(
        const std::filesystem::path& sourceURL, const std::filesystem::path& outputURL,
        const std::function<CleaningResult(const std::filesystem::path&, const std::filesystem::path&)>& operation) const;

    EngineConfiguration configuration_;
    std::unique_ptr<CleaningPipeline> pipeline_;
};

}  // namespace tavrin
