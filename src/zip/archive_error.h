#pragma once
// The failures of the ZIP layer. Hardening failures reuse the closest case: an unsafe or
// duplicate entry name is `invalidEntryPath`, data that inflates past its declared size is
// `invalidEntrySize`, entries whose data overlap are `invalidLocalHeaderDataOffset`.

#include <string>

#include "model/enforce.h"
#include "model/typed_error.h"

namespace tavrin {

enum class ArchiveErrorCase {
    unreadableArchive,
    unwritableArchive,
    invalidEntryPath,
    invalidCompressionMethod,
    invalidCRC32,
    cancelledOperation,
    invalidBufferSize,
    invalidEntrySize,
    invalidLocalHeaderDataOffset,
    invalidLocalHeaderSize,
    invalidCentralDirectoryOffset,
    invalidCentralDirectorySize,
    invalidCentralDirectoryEntryCount,
    missingEndOfCentralDirectoryRecord,
    uncontainedSymlink,
    // An honestly sized entry larger than its reader will take whole into memory.
    entryExceedsSizeLimit,
};

class ArchiveError : public TypedError<ArchiveErrorCase> {
public:
    explicit ArchiveError(Case c) : TypedError(c, {}) { setText(description()); }
    std::string description() const;
};
// Reads of untrusted structure are guarded with `enforce(condition, ArchiveError::Case::…)`.
ArchiveError errorFor(ArchiveError::Case);

}  // namespace tavrin
