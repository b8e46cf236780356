#include "model/pipeline_error.h"

#include <fmt/core.h>

namespace tavrin {

std::string describeError(std::exception_ptr error) {
    if (!error) return "Unknown error";
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "Unknown error";
    }
}

PipelineError::PipelineError(Case c, std::filesystem::path url, FileType type, std::string detail,
                             std::exception_ptr underlying)
    : TypedError(c, std::move(detail)), url_(std::move(url)), type_(type), underlying_(std::move(underlying)) {
    setText(description());
}

PipelineError PipelineError::noReaderAvailable(FileType t) { return {Case::noReaderAvailable, {}, t, {}, nullptr}; }
PipelineError PipelineError::noWriterAvailable(FileType t) { return {Case::noWriterAvailable, {}, t, {}, nullptr}; }
PipelineError PipelineError::fileTypeUnknown(const std::filesystem::path& u) {
    return {Case::fileTypeUnknown, u, FileType::jpeg, {}, nullptr};
}
PipelineError PipelineError::encryptedOfficeDocument(const std::filesystem::path& u) {
    return {Case::encryptedOfficeDocument, u, FileType::jpeg, {}, nullptr};
}
PipelineError PipelineError::sourceFileNotAccessible(const std::filesystem::path& u) {
    return {Case::sourceFileNotAccessible, u, FileType::jpeg, {}, nullptr};
}
PipelineError PipelineError::sourceFileNotAccessible(const std::filesystem::path& u, std::string reason) {
    if (reason.empty()) return sourceFileNotAccessible(u);
    auto underlying = std::make_exception_ptr(VerificationFailure(reason));
    return {Case::sourceFileNotAccessible, u, FileType::jpeg, std::move(reason), std::move(underlying)};
}
PipelineError PipelineError::outputDirectoryNotAccessible(const std::filesystem::path& u) {
    return {Case::outputDirectoryNotAccessible, u, FileType::jpeg, {}, nullptr};
}
PipelineError PipelineError::readFailed(const std::filesystem::path& u, std::exception_ptr e) {
    return {Case::readFailed, u, FileType::jpeg, describeError(e), e};
}
PipelineError PipelineError::writeFailed(const std::filesystem::path& u, std::exception_ptr e) {
    return {Case::writeFailed, u, FileType::jpeg, describeError(e), e};
}
PipelineError PipelineError::formatNotVerifiedForCleaning(FileType t) {
    return {Case::formatNotVerifiedForCleaning, {}, t, {}, nullptr};
}
PipelineError PipelineError::outputVerificationFailed(const std::filesystem::path& u, std::string reason) {
    if (reason.empty()) return {Case::outputVerificationFailed, u, FileType::jpeg, {}, nullptr};
    return outputVerificationFailed(u, std::make_exception_ptr(VerificationFailure(std::move(reason))));
}
PipelineError PipelineError::outputVerificationFailed(const std::filesystem::path& u, std::exception_ptr e) {
    if (!e) return {Case::outputVerificationFailed, u, FileType::jpeg, {}, nullptr};
    return {Case::outputVerificationFailed, u, FileType::jpeg, describeError(e), e};
}

std::string PipelineError::reason() const { return underlying_ ? detail() : std::string(); }
PipelineError PipelineError::exifToolFailed(std::string text) {
    return {Case::exifToolFailed, {}, FileType::jpeg, std::move(text), nullptr};
}
PipelineError PipelineError::cancelled() { return {Case::cancelled, {}, FileType::jpeg, {}, nullptr}; }
PipelineError PipelineError::exifToolNotAvailable() {
    return {Case::exifToolNotAvailable, {}, FileType::jpeg, {}, nullptr};
}

std::string PipelineError::description() const {
    const std::string name = url_.filename().string();
    const std::string_view type = displayName(type_);
    switch (errorCase()) {
        case Case::noReaderAvailable: return fmt::format("No metadata reader available for {} files", type);
        case Case::noWriterAvailable: return fmt::format("No metadata writer available for {} files", type);
        case Case::fileTypeUnknown: return fmt::format("Cannot determine file type: {}", name);
        case Case::encryptedOfficeDocument:
            return fmt::format(
                "{} is a password-protected Office document, which Tavrin can't process yet. Remove the password in "
                "Word, Excel, or PowerPoint, save a copy, then clean that copy.",
                name);
        case Case::sourceFileNotAccessible: {
            std::string text = fmt::format("Cannot access file: {}", name);
            if (!detail().empty()) text += fmt::format(" ({})", detail());
            return text;
        }
        case Case::outputDirectoryNotAccessible: return fmt::format("Cannot write to directory: {}", url_.string());
        case Case::readFailed: return fmt::format("Failed to read metadata from {}: {}", name, detail());
        case Case::writeFailed: return fmt::format("Failed to clean {}: {}", name, detail());
        case Case::formatNotVerifiedForCleaning:
            return fmt::format(
                "{} cleaning is blocked in strict mode because metadata removal has not been fully verified for "
                "release.",
                type);
        case Case::outputVerificationFailed: {
            std::string text = fmt::format(
                "Couldn't verify {} was fully cleaned \u2014 it may use an unusual structure or contain embedded "
                "attachments \u2014 so the cleaned copy was not produced.",
                name);
            if (!detail().empty()) text += fmt::format(" ({})", detail());
            return text;
        }
        case Case::exifToolFailed: return fmt::format("ExifTool error: {}", detail());
        case Case::cancelled: return "Operation was cancelled";
        case Case::exifToolNotAvailable:
            return "ExifTool is not available. This fallback is not included in the current Tavrin release.";
    }
    return {};
}

}  // namespace tavrin
