#pragma once
// The failures of the ZIP layer. Hardening failures reuse the closest case: an unsafe or
// duplicate entry name is `invalidEntryPath`, data that inflates past its declared size is
// `invalidEntrySize`, entries whose data overlap are `invalidLocalHeaderDataOffset`.

#include <exception>
#include <string>

namespace tavrin {

class ArchiveError : public std::exception {
public:
    enum class Case {
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

    explicit ArchiveError(Case c) : case_(c), text_(description()) {}
    Case errorCase() const { return case_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string text_;
};

// Guards a read of untrusted structure: throws `ArchiveError(failure)` unless `condition` holds.
inline void enforce(bool condition, ArchiveError::Case failure) {
    if (!condition) throw ArchiveError(failure);
}

}  // namespace tavrin
