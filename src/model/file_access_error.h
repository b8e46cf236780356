#pragma once
// Failures of file access, by kind: the kind decides what a caller does (a missing or unreadable
// user's file falls back to the staged copy; a write outside staging is refused). The store's
// records and containers and the services raise this one type.

#include <exception>
#include <filesystem>
#include <string>

namespace tavrin {

class FileAccessError : public std::exception {
public:
    enum class Code {
        fileNoSuchFile,
        fileReadNoSuchFile,
        fileReadNoPermission,
        fileReadUnknown,
        fileWriteNoPermission,
        fileWriteOutOfSpace,
        fileWriteFileExists,
        fileWriteUnknown,
    };

    // `errorNumber` is the errno behind the failure, 0 when there is none; its text follows the
    // fixed one in brackets.
    FileAccessError(Code code, std::filesystem::path url, int errorNumber = 0);
    // The kind of a failed read or write with this errno.
    static FileAccessError reading(std::filesystem::path url, int errorNumber);
    static FileAccessError writing(std::filesystem::path url, int errorNumber);

    // The forms the store's code uses.
    using Case = Code;
    static FileAccessError fileWriteFileExists(const std::filesystem::path& path) {
        return FileAccessError(Code::fileWriteFileExists, path);
    }
    static FileAccessError fileReadNoPermission(const std::filesystem::path& path) {
        return FileAccessError(Code::fileReadNoPermission, path);
    }

    Code code() const { return code_; }
    Case errorCase() const { return code_; }
    const std::filesystem::path& url() const { return url_; }
    const std::filesystem::path& path() const { return url_; }
    int errorNumber() const { return errorNumber_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Code code_;
    std::filesystem::path url_;
    int errorNumber_;
    std::string text_;
};

}  // namespace tavrin
