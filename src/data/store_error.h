#pragma once
// Failures of the store and of the files its records point at, with the texts users see.
// A store that cannot be opened is reported with the file or directory at fault and is never
// deleted or rebuilt.

#include <filesystem>
#include <stdexcept>
#include <string>

#include "model/file_access_error.h"

namespace tavrin {

class StoreError : public std::exception {
public:
    enum class Case {
        notADatabase,           // the file is something else
        damaged,                // SQLite found the file corrupt
        directoryNotWritable,   // the store's directory cannot hold the store and its journal
        cannotOpen,             // any other failure to open
        operationFailed,        // a fetch or a save failed
    };

    static StoreError notADatabase(const std::filesystem::path& store);
    static StoreError damaged(const std::filesystem::path& store, std::string reason);
    static StoreError directoryNotWritable(const std::filesystem::path& directory, std::string reason);
    static StoreError cannotOpen(const std::filesystem::path& store, std::string reason);
    static StoreError operationFailed(const std::filesystem::path& store, std::string reason);

    Case errorCase() const { return case_; }
    // The store file, or the directory for `directoryNotWritable`.
    const std::filesystem::path& path() const { return path_; }
    const std::string& reason() const { return reason_; }
    std::string description() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    StoreError(Case c, std::filesystem::path path, std::string reason);
    Case case_;
    std::filesystem::path path_;
    std::string reason_;
    std::string text_;
};

}  // namespace tavrin
