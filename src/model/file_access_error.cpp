#include "model/file_access_error.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace tavrin {

FileAccessError::FileAccessError(Code code, std::filesystem::path url, int errorNumber)
    : code_(code), url_(std::move(url)), errorNumber_(errorNumber) {
    text_ = description();
}

FileAccessError FileAccessError::reading(std::filesystem::path url, int errorNumber) {
    switch (errorNumber) {
        case ENOENT:
        case ENOTDIR:
            return FileAccessError(Code::fileReadNoSuchFile, std::move(url), errorNumber);
        case EACCES:
        case EPERM:
            return FileAccessError(Code::fileReadNoPermission, std::move(url), errorNumber);
        default:
            return FileAccessError(Code::fileReadUnknown, std::move(url), errorNumber);
    }
}

FileAccessError FileAccessError::writing(std::filesystem::path url, int errorNumber) {
    switch (errorNumber) {
        case EACCES:
        case EPERM:
        case EROFS:
            return FileAccessError(Code::fileWriteNoPermission, std::move(url), errorNumber);
        case ENOSPC:
        case EDQUOT:
            return FileAccessError(Code::fileWriteOutOfSpace, std::move(url), errorNumber);
        case EEXIST:
            return FileAccessError(Code::fileWriteFileExists, std::move(url), errorNumber);
        case ENOENT:
            return FileAccessError(Code::fileNoSuchFile, std::move(url), errorNumber);
        default:
            return FileAccessError(Code::fileWriteUnknown, std::move(url), errorNumber);
    }
}

std::string FileAccessError::description() const {
    const auto name = url_.filename().string();
    std::string text;
    switch (code_) {
        case Code::fileNoSuchFile:
            text = fmt::format("The file \u201c{}\u201d doesn\u2019t exist.", name);
            break;
        case Code::fileReadNoSuchFile:
            text = fmt::format("The file \u201c{}\u201d couldn\u2019t be opened because there is no such file.", name);
            break;
        case Code::fileReadNoPermission:
            text = fmt::format(
                "The file \u201c{}\u201d couldn\u2019t be opened because you don\u2019t have permission to view it.", name);
            break;
        case Code::fileReadUnknown:
            text = fmt::format("The file \u201c{}\u201d couldn\u2019t be opened.", name);
            break;
        case Code::fileWriteNoPermission:
            text = fmt::format("You don\u2019t have permission to save the file \u201c{}\u201d.", name);
            break;
        case Code::fileWriteOutOfSpace:
            text = fmt::format("The file \u201c{}\u201d couldn\u2019t be saved because there isn\u2019t enough space.", name);
            break;
        case Code::fileWriteFileExists:
            text = fmt::format(
                "The file \u201c{}\u201d couldn\u2019t be saved because a file with the same name already exists.", name);
            break;
        case Code::fileWriteUnknown:
            text = fmt::format("The file \u201c{}\u201d couldn\u2019t be saved.", name);
            break;
    }
    if (errorNumber_ != 0) text += fmt::format(" ({})", std::strerror(errorNumber_));
    return text;
}

}  // namespace tavrin
