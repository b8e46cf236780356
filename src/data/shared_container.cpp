#include "data/shared_container.h"

#include <cstdlib>
#include <system_error>

#include "data/app_settings.h"
#include "data/metadata_preset.h"
#include "data/processing_history.h"
#include "data/queued_file.h"
#include "data/store_error.h"
#include "data/watched_folder.h"
#include "model/pipeline_error.h"

namespace tavrin {

namespace {

std::optional<std::string> variable(const char* name) {
    if (const char* value = std::getenv(name)) return std::string(value);
    return std::nullopt;
}

std::filesystem::path temporaryDirectory() {
    std::error_code ec;
    auto dir = std::filesystem::temp_directory_path(ec);
    return ec ? std::filesystem::path("/tmp") : dir;
}

// The per-user data directory; none when neither variable gives a full path.
std::optional<std::filesystem::path> userDataDirectory(const StoreEnvironment& environment) {
    // Relative values are invalid by the base-directory rules and are ignored.
    if (environment.xdgDataHome && std::filesystem::path(*environment.xdgDataHome).is_absolute())
        return std::filesystem::path(*environment.xdgDataHome);
    if (environment.home && std::filesystem::path(*environment.home).is_absolute())
        return std::filesystem::path(*environment.home) / ".local" / "share";
    return std::nullopt;
}

}  // namespace

StoreEnvironment StoreEnvironment::current() {
    return {variable("XDG_DATA_HOME"), variable("HOME"), variable(kInMemoryStoreVariable)};
}

SharedContainer::SharedContainer(std::filesystem::path root)
    : rootURL(std::move(root)), stagingDirectoryURL(rootURL / "Staging"), cacheDirectoryURL(rootURL / "Cache") {}

SharedContainer SharedContainer::current() { return current(StoreEnvironment::current()); }

SharedContainer SharedContainer::current(const StoreEnvironment& environment) {
    if (auto data = userDataDirectory(environment)) return SharedContainer(*data / "Tavrin");
    return SharedContainer(temporaryDirectory() / "Tavrin");
}

const SharedContainer& SharedContainer::ensureDirectories() const {
    for (const auto* url : {&rootURL, &stagingDirectoryURL, &cacheDirectoryURL}) {
        std::error_code ec;
        const auto status = std::filesystem::status(*url, ec);
        if (std::filesystem::is_directory(status)) continue;
        if (std::filesystem::exists(status)) throw FileAccessError::fileWriteFileExists(*url);
        std::filesystem::create_directories(*url, ec);
        if (ec)
            throw FileSystemError("Cannot create the folder \u201C" + url->string() + "\u201D: " + ec.message(),
                                  ec.value());
    }
    return *this;
}

namespace SharedContainerConfig {

std::filesystem::path applicationSupportDirectory() { return applicationSupportDirectory(StoreEnvironment::current()); }

std::filesystem::path applicationSupportDirectory(const StoreEnvironment& environment) {
    const auto data = userDataDirectory(environment);
    const auto directory = (data ? *data : temporaryDirectory()) / "Tavrin";
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    return directory;
}

std::filesystem::path applicationStoreURL() { return applicationStoreURL(StoreEnvironment::current()); }
std::filesystem::path applicationStoreURL(const StoreEnvironment& environment) {
    return applicationSupportDirectory(environment) / std::string(storeFileName);
}

const Schema& schema() {
    static const Schema s{"1.0.0",
                          {&QueuedFile::table(), &MetadataPreset::table(), &ProcessingHistory::table(),
                           &AppSettings::table(), &WatchedFolder::table()}};
    return s;
}

ModelConfiguration makeApplicationConfiguration() { return makeApplicationConfiguration(StoreEnvironment::current()); }

ModelConfiguration makeApplicationConfiguration(const StoreEnvironment& environment) {
    if (environment.useInMemoryStore && *environment.useInMemoryStore == "1") return makeInMemoryConfiguration();
    return makeConfiguration(applicationStoreURL(environment));
}

ModelConfiguration makeInMemoryConfiguration() { return {std::string(storeName), schema(), true, true, {}}; }

ModelConfiguration makeConfiguration(const std::filesystem::path& storeURL) {
    return {std::string(storeName), schema(), false, true, storeURL};
}

}  // namespace SharedContainerConfig

namespace ModelContainerFactory {

std::shared_ptr<ModelContainer> application() { return application(StoreEnvironment::current()); }
std::shared_ptr<ModelContainer> application(const StoreEnvironment& environment) {
    return std::make_shared<ModelContainer>(SharedContainerConfig::schema(),
                                            SharedContainerConfig::makeApplicationConfiguration(environment));
}
std::shared_ptr<ModelContainer> inMemory() {
    return std::make_shared<ModelContainer>(SharedContainerConfig::schema(),
                                            SharedContainerConfig::makeInMemoryConfiguration());
}
std::shared_ptr<ModelContainer> atURL(const std::filesystem::path& storeURL) {
    return std::make_shared<ModelContainer>(SharedContainerConfig::schema(),
                                            SharedContainerConfig::makeConfiguration(storeURL));
}

}  // namespace ModelContainerFactory

}  // namespace tavrin
