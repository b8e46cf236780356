// The computed views of the records: fall-backs, clamps, the queue's cleanability rules, preset
// names and starter syncing, sizes, folder names, bookmarks and file access.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "data/app_settings_fields.h"
#include "data/queries.h"
#include "data/shared_container.h"
#include "data/store_defaults.h"
#include "data/store_error.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

using namespace std::chrono_literals;
const Date kT0 = storedPrecision(std::chrono::system_clock::from_time_t(1'700'000'000));

TEST(AppSettingsViews, unknownRawValuesReadAsTheirFallbacks) {
    AppSettings s;
    s.preferredEmailClientRaw = "appleMail";
    s.cleanOutputModeRaw = "";
    s.cleanCopySuffixTokenRaw = "CLEAN";
    EXPECT_EQ(s.preferredEmailClient(), PreferredEmailClient::other);
    EXPECT_EQ(s.cleanOutputMode(), CleanOutputMode::copy);
    EXPECT_EQ(s.cleanCopySuffix(), CleanCopySuffixKind::clean);
    for (auto c : preferredEmailClients::allCases()) {
        s.setPreferredEmailClient(c);
        EXPECT_EQ(s.preferredEmailClient(), c);
    }
    for (auto m : cleanOutputModes::allCases()) {
        s.setCleanOutputMode(m);
        EXPECT_EQ(s.cleanOutputMode(), m);
    }
    for (auto k : cleanCopySuffixKinds::allCases()) {
        s.setCleanCopySuffix(k);
        EXPECT_EQ(s.cleanCopySuffix(), k);
    }
    EXPECT_EQ(displayName(CleanCopySuffixKind::custom), "Custom\u2026");
    EXPECT_TRUE(preservesOriginal(CleanOutputMode::copy));
    EXPECT_FALSE(preservesOriginal(CleanOutputMode::inPlace));
}

TEST(AppSettingsViews, concurrencyIsClampedOnWritesAndNeverOnReads) {
    const std::vector<std::pair<std::int64_t, std::int64_t>> cases{{0, 1}, {9, 8}, {-5, 1}, {1, 1}, {8, 8}, {5, 5}};
    for (auto [written, stored] : cases) {
        AppSettings s;
        s.setMaxConcurrentProcessing(written);
        EXPECT_EQ(s.maxConcurrentProcessingValue, stored) << written;
        auto made = AppSettings::make(AppSettings::singletonID(), std::nullopt, PreferredEmailClient::other, false,
                                      false, false, written, CleanOutputMode::copy, CleanCopySuffixKind::clean,
                                      "-clean", false, false, false);
        EXPECT_EQ(made->maxConcurrentProcessingValue, stored) << "initializer, " << written;
    }
    AppSettings s;
    s.maxConcurrentProcessingValue = 99;
    EXPECT_EQ(s.maxConcurrentProcessing(), 99);
}

TEST(AppSettingsViews, defaultRecordHasTheSingletonIdAndDefaults) {
    auto s = AppSettings::makeDefault();
    EXPECT_EQ(s->id.uuidString(), "AAAAAAAA-AAAA-AAAA-AAAA-AAAAAAAAAAAA");
    EXPECT_EQ(s->preferredEmailClientRaw, "other");
    EXPECT_EQ(s->maxConcurrentProcessingValue, 4);
    EXPECT_EQ(s->cleanOutputModeRaw, "copy");
    EXPECT_EQ(s->cleanCopySuffixTokenRaw, "clean");
    EXPECT_EQ(s->cleanCopyCustomSuffix, "-clean");
    EXPECT_FALSE(s->defaultPresetId);
}

TEST(AppSettingsViews, fieldsByNameWriteThroughTheViews) {
    struct Case {
        const char* key;
        const char* value;
        const char* shown;  // empty: the value is refused
    };
    const std::vector<Case> cases{
        {"maxConcurrentProcessing", "0", "1"},     {"maxConcurrentProcessing", "12", "8"},
        {"maxConcurrentProcessing", "x", ""},      {"cleanOutputMode", "inPlace", "inPlace"},
        {"cleanOutputMode", "sideways", "copy"},   {"cleanCopySuffix", "final", "final"},
        {"preferredEmailClient", "evolution", "evolution"}, {"preferredEmailClient", "appleMail", "other"},
        {"launchAtLogin", "true", "true"},         {"launchAtLogin", "maybe", ""},
        {"defaultPresetId", "00000000-0000-0000-0000-000000000003", "00000000-0000-0000-0000-000000000003"},
        {"defaultPresetId", "none", "none"},       {"defaultPresetId", "123", ""},
        {"watchedFolderDebounceInterval", "1.5", "1.5"}, {"watchedFolderDebounceInterval", "-1", ""},
        {"cleanCopyCustomSuffix", " -x ", " -x "},
    };
    for (const auto& c : cases) {
        AppSettings s;
        const auto* field = appSettingsField(c.key);
        ASSERT_NE(field, nullptr) << c.key;
        if (std::string_view(c.shown).empty()) {
            EXPECT_THROW(field->set(s, c.value), SettingsValueError) << c.key << "=" << c.value;
        } else {
            field->set(s, c.value);
            EXPECT_EQ(appSettingsFieldText(*field, s), c.shown) << c.key << "=" << c.value;
        }
    }
    EXPECT_EQ(appSettingsField("maxConcurrentProcessingValue"), nullptr) << "a field with a view is named by the view";
}

std::shared_ptr<QueuedFile> queued(QueuedFile::Status status) {
    auto f = std::make_shared<QueuedFile>(Uuid::random(), "a", "pdf", "/s/a.pdf", 10, FileType::pdf, kT0);
    f->setStatus(status);
    return f;
}

TEST(QueuedFileViews, cleanabilityFollowsStatusConfigurationAndExplicitEmptySelection) {
    using S = QueuedFile::Status;
    struct Case {
        const char* what;
        std::string statusRaw;
        bool preset, categories, keys, emptySelection;
        bool canStart, cleanable;
    };
    const std::vector<Case> cases{
        {"staged, nothing chosen yet", "staged", false, false, false, false, false, true},
        {"staged, explicitly nothing", "staged", false, false, false, true, false, false},
        {"unknown status reads as staged", "exploded", false, false, false, false, false, true},
        {"configured with a preset", "configured", true, false, false, false, true, true},
        {"configured with categories", "configured", false, true, false, false, true, true},
        {"configured with keys only", "configured", false, false, true, false, true, true},
        {"configured, preset deleted, nothing left", "configured", false, false, false, false, false, false},
        {"completed with a preset", "completed", true, false, false, false, false, false},
        {"failed", "failed", false, true, false, false, false, false},
    };
    for (const auto& c : cases) {
        auto f = queued(S::staged);
        f->statusRaw = c.statusRaw;
        if (c.preset) f->presetId = Uuid::random();
        if (c.categories) f->setCategoriesToRemove({MetadataCategory::location});
        if (c.keys) f->specificKeysToRemove = {"k"};
        f->userDidConfigureEmptySelection = c.emptySelection;
        EXPECT_EQ(f->canStartCleaning(), c.canStart) << c.what;
        EXPECT_EQ(f->isCleanable(), c.cleanable) << c.what;
    }
}

TEST(QueuedFileViews, namesSizesAndFallbacks) {
    auto f = queued(QueuedFile::Status::staged);
    EXPECT_EQ(f->fullFileName(), "a.pdf");
    f->fileExtension = "";
    EXPECT_EQ(f->fullFileName(), "a");
    EXPECT_FALSE(f->bytesSaved()) << "absent, not zero, before cleaning";
    f->cleanedFileSizeBytes = 12;
    EXPECT_EQ(f->bytesSaved(), -2);
    f->fileTypeRaw = "floppy";
    EXPECT_EQ(f->fileType(), FileType::jpeg);
    f->metadataSnapshotData = Blob{'[', '1', ']'};
    EXPECT_FALSE(f->metadataSummary());
    for (auto s : queuedFileStatuses::allCases()) {
        f->setStatus(s);
        EXPECT_EQ(f->status(), s);
    }
    EXPECT_EQ(displayName(QueuedFile::Status::configured), "Ready");
    EXPECT_EQ(systemImage(QueuedFile::Status::clean), "checkmark.shield.fill");
    f->setCategoriesToRemove({MetadataCategory::thumbnails, MetadataCategory::authorIdentity, MetadataCategory::location});
    EXPECT_EQ(f->categoriesToRemoveRaw, (std::vector<std::string>{"authorIdentity", "location", "thumbnails"}));
}

// Bookmarks whose renewal fails, for the rule that the old data then stays.
class FailingRenewal : public Bookmarks {
public:
    Blob create(const std::filesystem::path&) const override { throw BookmarkError("renewal refused"); }
};

TEST(QueuedFileAccess, bookmarksResolveRenewWhenStaleAndFallBack) {
    testing::TempDir dir;
    const auto source = dir / "user.pdf";
    testing::writeFile(source, "v1");
    auto f = queued(QueuedFile::Status::staged);
    f->originalFilePath = (dir / "staged.pdf").string();
    f->originalFileBookmarkData = Bookmarks::standard().create(source);
    EXPECT_EQ(f->resolvedOriginalFileURL(), source);

    // Replace the file: same path, another inode, so the bookmark is stale.
    const auto old = *f->originalFileBookmarkData;
    testing::writeFile(dir / "next.pdf", "v2");
    std::filesystem::rename(dir / "next.pdf", source);
    EXPECT_EQ(f->resolvedOriginalFileURL(FailingRenewal()), source);
    EXPECT_EQ(*f->originalFileBookmarkData, old) << "a failed renewal keeps the old bookmark";
    EXPECT_EQ(f->resolvedOriginalFileURL(), source);
    EXPECT_NE(*f->originalFileBookmarkData, old) << "renewed";

    std::filesystem::remove(source);
    EXPECT_EQ(f->resolvedOriginalFileURL(), dir / "staged.pdf") << "unresolvable: the staged copy";
    try {
        f->beginResolvedOriginalFileAccess();
        FAIL() << "no error";
    } catch (const FileAccessError& e) {
        EXPECT_EQ(e.errorCase(), FileAccessError::Case::fileReadNoPermission);
    }
    f->originalFileBookmarkData = Blob{'{', '}'};
    EXPECT_EQ(f->resolvedOriginalFileURL(), dir / "staged.pdf") << "unreadable bookmark";
}

TEST(QueuedFileAccess, withoutBookmarkAccessPrefersTheSourcePathAndResolutionTheStagedCopy) {
    auto f = queued(QueuedFile::Status::staged);
    f->originalSourcePath = "/home/u/a.pdf";
    EXPECT_EQ(f->beginResolvedOriginalFileAccess()->url(), "/home/u/a.pdf");
    EXPECT_EQ(f->resolvedOriginalFileURL(), "/s/a.pdf");
    EXPECT_TRUE(f->matchesOriginalSourceURL("/home/u/./a.pdf"));
    EXPECT_TRUE(f->matchesOriginalSourceURL("/s/a.pdf"));
    EXPECT_FALSE(f->matchesOriginalSourceURL("/home/u/b.pdf"));
    const auto result = f->withResolvedOriginalFileURL([](const std::filesystem::path& url) { return url.string(); });
    EXPECT_EQ(result, "/home/u/a.pdf");
}

TEST(QueuedFileAccess, stopHandlerRunsOnceWhetherStoppedOrReleased) {
    int stops = 0;
    {
        ResolvedOriginalFileAccess access("/x", [&] { ++stops; });
        access.stopAccessing();
        access.stopAccessing();
    }
    EXPECT_EQ(stops, 1);
    { ResolvedOriginalFileAccess access("/x", [&] { ++stops; }); }
    EXPECT_EQ(stops, 2);
}

TEST(PresetViews, uniqueNameTrimsIgnoresCaseAndNumbersFromTwo) {
    struct Case {
        const char* wanted;
        std::vector<std::string> existing;
        const char* expected;
    };
    const std::vector<Case> cases{
        {"  Press Kit \n", {"press kit"}, "Press Kit 2"},
        {"", {"Untitled Preset"}, "Untitled Preset 2"},
        {" \t", {}, "Untitled Preset"},
        {"A", {"a", " A 2 ", "a 3"}, "A 4"},
        {"Fresh", {"Other"}, "Fresh"},
    };
    for (const auto& c : cases) EXPECT_EQ(MetadataPreset::uniqueName(c.wanted, c.existing), c.expected) << c.wanted;
}

TEST(PresetViews, syncStarterDefinitionChangesOnceAndSortsTheCategories) {
    auto stored = MetadataPreset::clientDeliverable(kT0);
    stored->name = "Renamed";
    stored->categoriesToRemoveRaw = {"thumbnails", "authorIdentity", "deviceInfo", "softwareInfo", "documentHistory",
                                     "commentsAnnotations", "companyInfo"};
    const auto later = kT0 + 1h;
    EXPECT_TRUE(stored->syncStarterDefinition(*MetadataPreset::clientDeliverable(later), later));
    EXPECT_EQ(stored->name, "Standard Sharing");
    EXPECT_TRUE(std::is_sorted(stored->categoriesToRemoveRaw.begin(), stored->categoriesToRemoveRaw.end()));
    EXPECT_EQ(stored->modifiedAt, later);
    EXPECT_FALSE(stored->syncStarterDefinition(*MetadataPreset::clientDeliverable(later + 1h), later + 1h));
    EXPECT_EQ(stored->modifiedAt, later);
    EXPECT_EQ(stored->createdAt, kT0);
}

TEST(PresetViews, startersAndProfiles) {
    const auto& factories = MetadataPreset::builtInFactories();
    ASSERT_EQ(factories.size(), 3u);
    const std::vector<std::tuple<std::string, std::string, std::size_t>> expected{
        {"00000000-0000-0000-0000-000000000001", "Maximum Privacy", 11},
        {"00000000-0000-0000-0000-000000000002", "Standard Sharing", 7},
        {"00000000-0000-0000-0000-000000000003", "Location Only", 1}};
    for (std::size_t i = 0; i < factories.size(); ++i) {
        auto p = factories[i](kT0);
        EXPECT_EQ(p->id.uuidString(), std::get<0>(expected[i]));
        EXPECT_EQ(p->name, std::get<1>(expected[i]));
        EXPECT_EQ(p->categoriesToRemove().size(), std::get<2>(expected[i]));
        EXPECT_TRUE(p->isBuiltIn);
    }
    auto standard = MetadataPreset::clientDeliverable(kT0);
    for (auto kept : {MetadataCategory::location, MetadataCategory::timestamps, MetadataCategory::colorTechnical,
                      MetadataCategory::hiddenContent})
        EXPECT_FALSE(standard->categoriesToRemove().count(kept));
    standard->specificKeysToKeep = {"k", "k"};
    const auto profile = standard->toCleaningProfile();
    EXPECT_EQ(profile.name, "Standard Sharing");
    EXPECT_EQ(profile.specificKeysToKeep, std::set<std::string>{"k"});
    EXPECT_EQ(profile.pdfLinkPreservation, PDFLinkPreservationOptions::preserveAll());
    auto custom = MetadataPreset::makeCustom(" Mine ", {MetadataCategory::location}, {"mine"}, kT0);
    EXPECT_EQ(custom->name, "Mine 2");
    EXPECT_FALSE(custom->isBuiltIn);
}

TEST(PresetSeeding, seedsOnceRestoresRenamedAndDeletedStarters) {
    auto container = ModelContainerFactory::inMemory();
    auto& context = container->mainContext();
    EXPECT_TRUE(seedBuiltInPresetsIfNeeded(context, kT0));
    EXPECT_FALSE(seedBuiltInPresetsIfNeeded(context, kT0 + 1h)) << "nothing to write the second time";
    auto presets = context.fetch(PresetQueries::builtInPresets());
    ASSERT_EQ(presets.size(), 3u);
    presets[0]->name = "Mine now";
    context.deleteRecord(presets[1]);
    context.save();
    EXPECT_TRUE(seedBuiltInPresetsIfNeeded(context, kT0 + 2h));
    auto again = container->makeContext()->fetch(PresetQueries::builtInPresets());
    std::vector<std::string> names;
    for (const auto& p : again) names.push_back(p->name);
    EXPECT_EQ(names, (std::vector<std::string>{"Location Only", "Maximum Privacy", "Standard Sharing"}));
}

TEST(HistoryViews, sizesAndPercentages) {
    const std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t, double>> cases{
        {0, 0, 0, 0.0}, {0, 50, -50, 0.0}, {200, 150, 50, 25.0}, {100, 110, -10, -10.0}};
    for (auto [original, cleaned, saved, percent] : cases) {
        ProcessingHistory h;
        h.originalSize = original;
        h.cleanedSize = cleaned;
        EXPECT_EQ(h.bytesSaved(), saved);
        EXPECT_DOUBLE_EQ(h.sizeReductionPercent(), percent);
    }
    ProcessingHistory h;
    EXPECT_FALSE(h.cleanedFileURL());
    h.cleanedFilePath = "/tmp/a";
    EXPECT_EQ(h.cleanedFileURL(), std::filesystem::path("/tmp/a"));
}

TEST(WatchedFolderViews, namesPathsAndAccess) {
    const std::vector<std::tuple<std::string, std::string, std::string>> cases{
        {"/", "/", "/"},
        {"/home/u/Drop", "Drop", "~/Drop"},
        {"/home/u/Drop/", "Drop", "~/Drop/"},
        {"/home/u", "u", "~"},
        {"/home/user2/x", "x", "/home/user2/x"},
        {"", "", ""},
    };
    for (const auto& [path, name, shown] : cases) {
        WatchedFolder f;
        f.path = path;
        EXPECT_EQ(f.displayName(), name) << path;
        EXPECT_EQ(f.displayPath("/home/u"), shown) << path;
    }
    testing::TempDir dir;
    WatchedFolder f;
    f.path = (dir / "gone").string();
    EXPECT_EQ(f.startAccessing(), dir / "gone") << "no bookmark";
    f.bookmarkData = Blob{'x'};
    EXPECT_EQ(f.startAccessing(), dir / "gone") << "unreadable bookmark";
    std::filesystem::create_directories(dir / "real");
    f.bookmarkData = Bookmarks::standard().create(dir / "real");
    EXPECT_EQ(f.startAccessing(), dir / "real");
}

}  // namespace
}  // namespace tavrin
