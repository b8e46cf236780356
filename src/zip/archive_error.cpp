#include "zip/archive_error.h"

namespace tavrin {

std::string ArchiveError::description() const {
    switch (errorCase()) {
        case Case::unreadableArchive: return "The archive could not be read";
        case Case::unwritableArchive: return "The archive could not be written";
        case Case::invalidEntryPath: return "The archive holds an entry with an invalid or unsafe path";
        case Case::invalidCompressionMethod: return "The archive entry uses an unsupported compression method";
        case Case::invalidCRC32: return "The archive entry's data does not match its checksum";
        case Case::cancelledOperation: return "The archive operation was cancelled";
        case Case::invalidBufferSize: return "The buffer size for the archive operation is invalid";
        case Case::invalidEntrySize: return "The archive entry's data does not match its declared size";
        case Case::invalidLocalHeaderDataOffset: return "The archive entry's data lies outside its expected place";
        case Case::invalidLocalHeaderSize: return "The archive entry's local header is damaged";
        case Case::invalidCentralDirectoryOffset: return "The archive's central directory offset is invalid";
        case Case::invalidCentralDirectorySize: return "The archive's central directory size is invalid";
        case Case::invalidCentralDirectoryEntryCount: return "The archive's central directory entry count is invalid";
        case Case::missingEndOfCentralDirectoryRecord: return "The file is not a ZIP archive (no end of central directory record)";
        case Case::uncontainedSymlink: return "The archive holds a symbolic link that points outside it";
        case Case::entryExceedsSizeLimit: return "The archive entry is larger than the part-size limit";
    }
    return "";
}

}  // namespace tavrin
