#include "intake/watched_folder_auto_cleaner.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "model/pipeline_error.h"
#include "model/temporary_file.h"
#include "model/uuid.h"

namespace tavrin {

namespace {

// A name taken between choosing it and moving the copy there is chosen again this often.
constexpr int kNamingAttempts = 4;

class SystemCopyPublishingFileSystem final : public CopyPublishingFileSystem {
public:
    int renameNoReplace(const std::filesystem::path& from, const std::filesystem::path& to) override {
        return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
    }
    int copyToNewFile(const std::filesystem::path& from, const std::filesystem::path& to) override {
        const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
        if (in < 0) return errno;
        const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (out < 0) {
            const int error = errno;
            ::close(in);
            return error;
        }
        int error = 0;
        char buffer[1 << 16];
        for (;;) {
            const ssize_t got = ::read(in, buffer, sizeof buffer);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) error = errno;
            if (got <= 0) break;
            for (ssize_t done = 0; done < got && error == 0;) {
                const ssize_t put = ::write(out, buffer + done, static_cast<std::size_t>(got - done));
                if (put < 0 && errno == EINTR) continue;
                if (put < 0) error = errno;
                else done += put;
            }
            if (error) break;
        }
        if (error == 0 && ::fsync(out) != 0) error = errno;
        if (::close(out) != 0 && error == 0) error = errno;
        ::close(in);
        return error;
    }
};

[[noreturn]] void failWriting(const std::filesystem::path& destination, int error) {
    throw FileSystemError(
        fmt::format("Cannot write the cleaned copy \u201C{}\u201D ({})", destination.string(), std::strerror(error)), error);
}

}  // namespace

std::shared_ptr<CopyPublishingFileSystem> CopyPublishingFileSystem::system() {
    return std::make_shared<SystemCopyPublishingFileSystem>();
}

WatchedFolderAutoCleaner::WatchedFolderAutoCleaner(std::shared_ptr<const TavrinEngine> engine, CleanCopySuffix suffix,
                                                   std::shared_ptr<const CloudFileMaterializer> materializer,
                                                   double materializeTimeout, std::shared_ptr<CopyPublishingFileSystem> files)
    : engine_(std::move(engine)),
      suffix_(std::move(suffix)),
      materializer_(std::move(materializer)),
      materializeTimeout_(materializeTimeout),
      files_(std::move(files)) {}

BatchOutcome WatchedFolderAutoCleaner::cleanBatch(const std::vector<std::filesystem::path>& urls,
                                                  const CleaningProfile& profile) const {
    BatchOutcome outcome;
    for (const auto& url : urls) {
        try {
            outcome.cleaned.push_back(cleanToCopy(url, profile));
        } catch (...) {
            ++outcome.failedCount;
        }
    }
    return outcome;
}

CleanedFile WatchedFolderAutoCleaner::cleanToCopy(const std::filesystem::path& sourceURL,
                                                  const CleaningProfile& profile) const {
    if (materializer_) materializer_->materialize(sourceURL, materializeTimeout_);
    ScopedDirectory staging(TemporaryFile::makeTemporaryDirectory("tavrin_watch"));
    CleaningResult result = engine_->clean(sourceURL, profile, staging.path());
    // A writer throws when it cannot verify; an unverified result is still never published.
    if (!result.verifiedClean) throw PipelineError::outputVerificationFailed(sourceURL);
    for (int attempt = 1;; ++attempt) {
        const auto destination = destinationURL(sourceURL);
        try {
            publish(result.outputURL, destination);
            result.outputURL = destination;
            return CleanedFile{sourceURL, destination, std::move(result)};
        } catch (const FileSystemError& e) {
            if (e.code() != EEXIST || attempt == kNamingAttempts) throw;
        }
    }
}

void WatchedFolderAutoCleaner::publish(const std::filesystem::path& staged, const std::filesystem::path& destination) const {
    int error = files_->renameNoReplace(staged, destination);
    if (error == 0) return;
    if (error != EXDEV) failWriting(destination, error);
    // Another file system: copy under a hidden name beside the destination (the watcher skips
    // hidden names), then rename it into place without replacing anything.
    const auto hidden =
        destination.parent_path() / fmt::format(".{}.tavrin-{}", destination.filename().string(), Uuid::random().uuidString());
    error = files_->copyToNewFile(staged, hidden);
    if (error == 0) error = files_->renameNoReplace(hidden, destination);
    if (error != 0) {
        ::unlink(hidden.c_str());
        failWriting(destination, error);
    }
}

std::filesystem::path WatchedFolderAutoCleaner::destinationURL(const std::filesystem::path& source) const {
    const auto defaultURL = CleanCopyNaming::defaultCopyURL(source, suffix_);
    const auto directory = source.parent_path();
    std::string extension = source.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    try {
        return CleanCopyNaming::resolvedCopyURL(defaultURL.filename().string(), directory, extension,
                                                siblingsStartingWith(directory, defaultURL.stem().string()));
    } catch (const CleanCopyNamingError&) {
        return defaultURL;
    }
}

std::set<std::string> WatchedFolderAutoCleaner::siblingsStartingWith(const std::filesystem::path& directory,
                                                                     const std::string& stem) {
    // Only names that begin like the copy's, ignoring case, can collide with it or its numbered
    // forms; a folder of thousands of files is read with plain readdir, without building paths.
    const auto lower = [](std::string text) {
        for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return text;
    };
    const std::string prefix = lower(stem);
    std::set<std::string> paths;
    DIR* dir = ::opendir(directory.c_str());
    if (!dir) return paths;
    while (const dirent* item = ::readdir(dir)) {
        const std::string_view name(item->d_name);
        if (name.size() < prefix.size()) continue;
        if (lower(std::string(name.substr(0, prefix.size()))) == prefix) paths.insert((directory / std::string(name)).string());
    }
    ::closedir(dir);
    return paths;
}

std::set<std::string> WatchedFolderAutoCleaner::existingSiblingPaths(const std::filesystem::path& directory) {
    std::set<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator it(directory, error), end; !error && it != end; it.increment(error))
        paths.insert(it->path().string());
    if (error) return {};
    return paths;
}

}  // namespace tavrin
