#pragma once
// Where Tavrin's files live, and how the store is opened. No other code computes these places.
//
//   root     $XDG_DATA_HOME/Tavrin (default ~/.local/share/Tavrin)
//   Staging  root/Staging: the staged copies of queued files
//   Cache    root/Cache
//   store    root/Tavrin.store, or in memory when TAVRIN_USE_IN_MEMORY_STORE is "1"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "data/store.h"
#include "data/store_error.h"

namespace tavrin {

// The environment variables these places depend on, read once so tests can give their own.
struct StoreEnvironment {
    std::optional<std::string> xdgDataHome;
    std::optional<std::string> home;
    std::optional<std::string> useInMemoryStore;  // TAVRIN_USE_IN_MEMORY_STORE

    static StoreEnvironment current();
};

inline constexpr const char* kInMemoryStoreVariable = "TAVRIN_USE_IN_MEMORY_STORE";

struct SharedContainer {
    std::filesystem::path rootURL;
    std::filesystem::path stagingDirectoryURL;  // root + "Staging"
    std::filesystem::path cacheDirectoryURL;    // root + "Cache"

    explicit SharedContainer(std::filesystem::path root);

    // Derived anew at each call; touches nothing on disk.
    static SharedContainer current();
    static SharedContainer current(const StoreEnvironment& environment);

    // Creates the root, "Staging" and "Cache" in that order. Something in the way that is no
    // directory throws FileAccessError::fileWriteFileExists; a failed creation throws
    // FileSystemError; later directories are then left uncreated.
    const SharedContainer& ensureDirectories() const;
};

namespace SharedContainerConfig {

inline constexpr std::string_view storeName = "Tavrin";  // the configuration's name, not the file's
inline constexpr std::string_view storeFileName = "Tavrin.store";

// $XDG_DATA_HOME/Tavrin, else $HOME/.local/share/Tavrin, else the temporary directory + Tavrin.
// Created with its parents on every read; a failure of that is ignored.
std::filesystem::path applicationSupportDirectory();
std::filesystem::path applicationSupportDirectory(const StoreEnvironment& environment);
std::filesystem::path applicationStoreURL();
std::filesystem::path applicationStoreURL(const StoreEnvironment& environment);
// Schema 1.0.0 over QueuedFile, MetadataPreset, ProcessingHistory, AppSettings, WatchedFolder.
const Schema& schema();
// In memory exactly when TAVRIN_USE_IN_MEMORY_STORE is "1"; else the store file.
ModelConfiguration makeApplicationConfiguration();
ModelConfiguration makeApplicationConfiguration(const StoreEnvironment& environment);
ModelConfiguration makeInMemoryConfiguration();
// A store file elsewhere (`tavrin --store PATH`, tests, benchmarks).
ModelConfiguration makeConfiguration(const std::filesystem::path& storeURL);

}  // namespace SharedContainerConfig

namespace ModelContainerFactory {
// Both throw StoreError as the store's opening throws it; neither deletes or rebuilds a store.
std::shared_ptr<ModelContainer> application();
std::shared_ptr<ModelContainer> application(const StoreEnvironment& environment);
std::shared_ptr<ModelContainer> inMemory();
std::shared_ptr<ModelContainer> atURL(const std::filesystem::path& storeURL);
}  // namespace ModelContainerFactory

}  // namespace tavrin
