#pragma once
// Failures of file access in the services, by kind: the kind decides what a caller does (a
// missing or unreadable user's file falls back to the staged copy; a write outside staging is
// refused).

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

    Code code() const { return code_; }
    const std::filesystem::path& url() const { return url_; }
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
