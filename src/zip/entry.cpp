#include "zip/entry.h"

#include <ctime>

namespace tavrin {

namespace {
constexpr std::uint32_t typeMask = 0170000;
constexpr std::uint32_t directoryType = 0040000;
constexpr std::uint32_t symlinkType = 0120000;
constexpr std::uint8_t unixHost = 3;
constexpr std::uint32_t msDosDirectoryAttribute = 0x10;
}  // namespace

std::uint32_t Entry::fileAttributes() const {
    if ((centralDirectoryStructure.versionMadeBy >> 8) != unixHost) return 0;
    return centralDirectoryStructure.externalFileAttributes >> 16;
}

EntryType Entry::type() const {
    const std::uint32_t mode = fileAttributes();
    if ((mode & typeMask) == symlinkType) return EntryType::symlink;
    if ((mode & typeMask) == directoryType) return EntryType::directory;
    if (centralDirectoryStructure.externalFileAttributes & msDosDirectoryAttribute) return EntryType::directory;
    if (!path().empty() && path().back() == '/') return EntryType::directory;
    return EntryType::file;
}

std::chrono::system_clock::time_point Entry::modificationDate() const {
    return DOSDateTime{centralDirectoryStructure.lastModFileTime, centralDirectoryStructure.lastModFileDate}.toTimePoint();
}

std::uint64_t Entry::endOffset() const {
    std::uint64_t end = dataOffset() + compressedSize();
    if (zip64DataDescriptor) end += zip64DataDescriptor->size();
    if (dataDescriptor) end += dataDescriptor->size();
    return end;
}

DOSDateTime DOSDateTime::from(std::chrono::system_clock::time_point moment) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr || local.tm_year < 80) return DOSDateTime{0, (1 << 5) | 1};
    DOSDateTime d;
    d.time = static_cast<std::uint16_t>((local.tm_hour << 11) | (local.tm_min << 5) | (local.tm_sec / 2));
    d.date = static_cast<std::uint16_t>(((local.tm_year - 80) << 9) | ((local.tm_mon + 1) << 5) | local.tm_mday);
    return d;
}

std::chrono::system_clock::time_point DOSDateTime::toTimePoint() const {
    std::tm local{};
    local.tm_year = 80 + (date >> 9);
    local.tm_mon = std::max(1, (date >> 5) & 0x0F) - 1;
    local.tm_mday = std::max(1, date & 0x1F);
    local.tm_hour = time >> 11;
    local.tm_min = (time >> 5) & 0x3F;
    local.tm_sec = (time & 0x1F) * 2;
    local.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&local));
}

}  // namespace tavrin
