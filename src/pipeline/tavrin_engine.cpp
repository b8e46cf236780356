#include "pipeline/tavrin_engine.h"


#include "model/file_system.h"
#include "pipeline/native_formats.h"
#include "pipeline/pdf_module.h"
#include "model/pipeline_error.h"
#include "model/source_file.h"
#include "model/temporary_file.h"

namespace tavrin {

TavrinEngine::TavrinEngine(EngineConfiguration configuration)
    : configuration_(std::move(configuration)), pipeline_(std::make_unique<CleaningPipeline>()) {
    registerNativeFormats(*pipeline_, configuration_);
}

TavrinEngine::TavrinEngine(EngineConfiguration configuration, std::unique_ptr<CleaningPipeline> pipeline)
    : configuration_(std::move(configuration)), pipeline_(std::move(pipeline)) {}

CleaningResult TavrinEngine::cleanToFile(const std::filesystem::path& at, const CleaningProfile& with,
                                         const std::filesystem::path& outputURL) const {
    ScopedDirectory staging(TemporaryFile::makeTemporaryDirectory("tavrin_engine"));
    CleaningResult result = pipeline_->clean(at, staging.path(), with);
    // A writer must throw when it cannot verify; an unverified result is still never published.
    if (!result.verifiedClean) throw PipelineError::outputVerificationFailed(at);
    fs::moveItemNoReplace(result.outputURL, outputURL);
    result.outputURL = outputURL;
    return result;
}

CleaningResult TavrinEngine::runPasswordOperation(
    const std::filesystem::path& sourceURL, const std::filesystem::path& outputURL,
    const std::function<CleaningResult(const std::filesystem::path&, const std::filesystem::path&)>& operation) const {
    checkSource(sourceURL);
    ScopedDirectory staging(TemporaryFile::makeTemporaryDirectory("tavrin_pdf_pw"));
    const auto staged = staging.path() / sourceURL.filename();
    CleaningResult result = operation(sourceURL, staged);
    fs::moveItemNoReplace(staged, outputURL);
    result.outputURL = outputURL;
    return result;
}

bool TavrinEngine::isPDFEncrypted(const std::filesystem::path& at) {
    try {
        SourceFile::open(at).requireWithinSizeLimit(FileType::pdf);
    } catch (const PipelineError&) {
        return false;
    }
    return pdfModule::support().isEncrypted(at);
}

CleaningResult TavrinEngine::cleanEncryptedPDF(const std::filesystem::path& at, const std::string& password,
                                               const CleaningProfile& with, const PDFPasswordPolicy& policy,
                                               const std::filesystem::path& outputURL) const {
    return runPasswordOperation(at, outputURL, [&](const auto& source, const auto& staged) {
        return pdfModule::support().cleanEncrypted(source, staged, password, with, policy);
    });
}

CleaningResult TavrinEngine::addPasswordToPDF(const std::filesystem::path& at, const CleaningProfile& with,
                                              const PDFPasswordPolicy& policy,
                                              const std::filesystem::path& outputURL) const {
    return runPasswordOperation(at, outputURL, [&](const auto& source, const auto& staged) {
        return pdfModule::support().addPassword(source, staged, with, policy);
    });
}

CleaningResult TavrinEngine::removePasswordFromPDF(const std::filesystem::path& at, const std::string& password,
                                                   const CleaningProfile& with,
                                                   const std::filesystem::path& outputURL) const {
    return runPasswordOperation(at, outputURL, [&](const auto& source, const auto& staged) {
        return pdfModule::support().removePassword(source, staged, password, with);
    });
}

std::vector<BatchCleaningResult> TavrinEngine::batchClean(const std::vector<std::filesystem::path>& files,
                                                          const CleaningProfile& with,
                                                          const std::filesystem::path& outputDirectory,
                                                          const BatchRunOptions& options) const {
    if (!fs::isDirectory(outputDirectory)) throw PipelineError::outputDirectoryNotAccessible(outputDirectory);
    std::vector<BatchCleaningResult> results;
    results.reserve(files.size());
    for (const auto& file : files)
        results.push_back(BatchCleaningResult{file, std::make_exception_ptr(PipelineError::cancelled())});
    runBatch(
        files.size(),
        [&](std::size_t i) {
            try {
                results[i].result = pipeline_->clean(files[i], outputDirectory, with);
            } catch (...) {
                results[i].result = std::current_exception();
            }
        },
        options);
    return results;
}

std::filesystem::path TavrinEngine::cleanedFileURL(const std::filesystem::path& source,
                                                   const std::optional<std::filesystem::path>& directory) {
    const auto dir = directory.value_or(source.parent_path());
    std::string name = source.stem().string() + "_cleaned";
    if (source.has_extension()) name += source.extension().string();
    return dir / name;
}

}  // namespace tavrin
