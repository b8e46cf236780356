#include "office/office_metadata_writer.h"

#include <chrono>
#include <optional>

#include "model/cleaning_result_builder.h"
#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "office/office_hidden_content_detector.h"
#include "office/office_output_verifier.h"
#include "office/office_package.h"
#include "office/office_package_check.h"
#include "office/office_package_cleaner.h"
#include "zip/archive.h"

namespace tavrin {

std::string OfficeWriterError::description() const {
    switch (errorCase()) {
        case Case::satelliteDecodeFailed:
            return "OPC satellite file '" + detail() + "' could not be decoded; dangling relationship cleanup aborted";
        case Case::notAnOfficePackage: return "The file is not an Office Open XML package (" + detail() + ")";
    }
    return {};
}

namespace {

bool profileRemoves(const CleaningProfile& profile, MetadataCategory category) {
    return profile.categoriesToRemove.count(category) > 0;
}

}  // namespace

std::optional<std::string> OfficeMetadataWriter::packageInconsistency(const Archive& archive) {
    return OfficePackageCheck::inconsistency(archive);
}
std::optional<std::string> OfficeMetadataWriter::verificationFailure(const std::filesystem::path& output,
                                                                     const CleaningProfile& profile) {
    return outputVerificationFailure(output, profile);
}

CleaningResult OfficeMetadataWriter::cleanMetadata(const std::filesystem::path& source,
                                                   const std::filesystem::path& destination,
                                                   const CleaningProfile& profile) const {
    const auto start = std::chrono::steady_clock::now();
    std::optional<Archive> sourceArchive;
    try {
        sourceArchive.emplace(source, Archive::AccessMode::read);
    } catch (...) {
        throw PipelineError::writeFailed(source, std::current_exception());
    }
    // Refused before a byte is written: what is no Office package, what would inflate past the
    // budgets, and what holds a part that is not XML.
    if (auto reason = OfficePackageCheck::notAnOfficePackage(*sourceArchive))
        throw PipelineError::writeFailed(source, std::make_exception_ptr(OfficeWriterError::notAnOfficePackage(*reason)));
    if (auto reason = OfficePackageCheck::refusalOfSource(*sourceArchive))
        throw PipelineError::outputVerificationFailed(source, *reason);
    if (profileRemoves(profile, MetadataCategory::hiddenContent) && archiveEntry("xl/workbook.xml", *sourceArchive) &&
        OfficeHiddenContentDetector::visibleSheets(*sourceArchive).empty() &&
        !OfficeHiddenContentDetector::hiddenWorksheetPaths(*sourceArchive).empty())
        throw PipelineError::outputVerificationFailed(
            source, "xl/workbook.xml: every sheet is hidden, and a workbook with none left would not open");
    std::optional<Archive> destinationArchive;
    try {
        if (fs::exists(destination)) std::filesystem::remove(destination);
        destinationArchive.emplace(destination, Archive::AccessMode::create);
    } catch (...) {
        throw PipelineError::writeFailed(destination, std::current_exception());
    }

    OfficeCleaningAccumulator accumulator;
    cleanOfficePackage(*sourceArchive, *destinationArchive, profile, accumulator);
    destinationArchive.reset();

    // The warnings of a part that could not be treated are not shown: the call fails as a whole.
    if (accumulator.hadUnscrubbablePart) throw PipelineError::outputVerificationFailed(destination, accumulator.firstFailure);
    if (auto reason = verificationFailure(destination, profile)) throw PipelineError::outputVerificationFailed(destination, *reason);

    CleaningResult result = buildCleaningResult(source, destination, profile, std::move(accumulator.removedItems),
                                                std::move(accumulator.retainedItems), true);
    result.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.warnings = std::move(accumulator.warnings);
    return result;
}

}  // namespace tavrin
