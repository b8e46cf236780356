#pragma once
// The walk of one package cleaning. It copies the source entry by entry into the destination:
// comment, thumbnail, hidden and orphaned parts stay behind, every other part passes through the
// hidden-content, property, XML and media scrubbers, and relationships, content-type overrides
// and relationship ids that would name a part not in the copy are cleared on the way. It
// verifies nothing; the writer does that on the finished file.

#include <string>
#include <vector>

#include "model/cleaning_profile.h"
#include "model/cleaning_result.h"
#include "model/metadata_model.h"

namespace tavrin {

class Archive;

// All working state of one cleaning.
struct OfficeCleaningAccumulator {
    std::vector<MetadataItem> removedItems;
    std::vector<MetadataItem> retainedItems;
    std::vector<CleaningWarning> warnings;
    // Set when a part that had to be treated could not be; the result is then refused.
    bool hadUnscrubbablePart = false;
    // "<part>: <what went wrong>" of the first such part, the refusal's reason.
    std::string firstFailure;

    void fail(const std::string& path, std::string message) {
        if (!hadUnscrubbablePart) firstFailure = path + ": " + lowerCasedFirst(message);
        hadUnscrubbablePart = true;
        warnings.push_back({path, std::move(message)});
    }
    // A removed item of the part at `path`, with the id "office." + path.
    void recordRemoval(const std::string& path, std::string displayName, MetadataCategory category) {
        removedItems.push_back({"office." + path, path, std::move(displayName), MetadataValue::string(path), category,
                                MetadataSource::zipXML, true});
    }
    // "Part could not be parsed" reads "part could not be parsed" after a colon.
    static std::string lowerCasedFirst(std::string text) {
        if (!text.empty() && text.front() >= 'A' && text.front() <= 'Z') text.front() = static_cast<char>(text.front() + 32);
        return text;
    }
};

// Throws `PipelineError::outputVerificationFailed` with the part and reason when an entry
// cannot be extracted, ArchiveError when the destination cannot be written, and
// OfficeWriterError when a relationships or content-types part does not decode.
void cleanOfficePackage(const Archive& source, Archive& destination, const CleaningProfile& profile,
                        OfficeCleaningAccumulator& accumulator);

}  // namespace tavrin
