#include "data/store_error.h"

#include <fmt/format.h>

namespace tavrin {

StoreError::StoreError(Case c, std::filesystem::path path, std::string reason)
    : case_(c), path_(std::move(path)), reason_(std::move(reason)) {
    text_ = description();
}

StoreError StoreError::notADatabase(const std::filesystem::path& store) { return {Case::notADatabase, store, {}}; }
StoreError StoreError::damaged(const std::filesystem::path& store, std::string reason) {
    return {Case::damaged, store, std::move(reason)};
}
StoreError StoreError::directoryNotWritable(const std::filesystem::path& directory, std::string reason) {
    return {Case::directoryNotWritable, directory, std::move(reason)};
}
StoreError StoreError::cannotOpen(const std::filesystem::path& store, std::string reason) {
    return {Case::cannotOpen, store, std::move(reason)};
}
StoreError StoreError::operationFailed(const std::filesystem::path& store, std::string reason) {
    return {Case::operationFailed, store, std::move(reason)};
}

std::string StoreError::description() const {
    const std::string path = path_.string();
    switch (case_) {
        case Case::notADatabase:
            return fmt::format("The store \u201C{}\u201D is not a database. It was left as it is.", path);
        case Case::damaged:
            return fmt::format("The store \u201C{}\u201D is damaged ({}). It was left as it is.", path, reason_);
        case Case::directoryNotWritable:
            return fmt::format("The store\u2019s folder \u201C{}\u201D cannot be written to ({}).", path, reason_);
        case Case::cannotOpen:
            return fmt::format("The store \u201C{}\u201D could not be opened ({}).", path, reason_);
        case Case::operationFailed:
            return fmt::format("The store \u201C{}\u201D could not complete the operation ({}).", path, reason_);
    }
    return {};
}

}  // namespace tavrin
