// Presets: the starters return to their definitions at each start and cannot be changed, the
// list shows them first, and deleting a preset sends its ready files back to be configured.

#include "../image/image_fixtures.h"
#include "queue_fixtures.h"

namespace tavrin {
namespace {

using testing::QueueFixture;
using PresetServiceTest = QueueFixture;

TEST_F(PresetServiceTest, aRenamedStarterGetsItsNameBackAndKeepsItsIdentity) {
    PresetService presets(context(), notifier);
    auto stored = starter(MetadataPreset::clientDeliverableID());
    const Date created = stored->createdAt;
    stored->name = "Mine now";
    stored->setCategoriesToRemove({MetadataCategory::location});
    context().save();
    EXPECT_TRUE(presets.seedBuiltInPresetsIfNeeded());
    auto fresh = container->makeContext()->fetch(PresetQueries::preset(MetadataPreset::clientDeliverableID())).front();
    EXPECT_EQ(fresh->name, "Standard Sharing");
    EXPECT_EQ(fresh->createdAt, created);
    EXPECT_EQ(fresh->categoriesToRemove(), MetadataPreset::clientDeliverable()->categoriesToRemove());
    EXPECT_FALSE(presets.seedBuiltInPresetsIfNeeded()) << "a second seeding writes nothing";
}

TEST_F(PresetServiceTest, aDeletedStarterComesBack) {
    context().deleteRecord(starter(MetadataPreset::locationOnlyID()));
    context().save();
    PresetService presets(context(), notifier);
    EXPECT_TRUE(presets.seedBuiltInPresetsIfNeeded());
    EXPECT_EQ(container->makeContext()->fetchCount(PresetQueries::builtInPresets()), 3);
}

TEST_F(PresetServiceTest, theListShowsTheStartersFirstWhateverTheirNames) {
    PresetService presets(context(), notifier);
    presets.createPreset("Aardvark", {}, {}, {});
    presets.createPreset("beta", {MetadataCategory::location}, {}, {});
    const auto all = presets.fetchAllPresets();
    ASSERT_EQ(all.size(), 5u);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(all[i]->isBuiltIn) << all[i]->name;
    EXPECT_EQ(all[3]->name, "Aardvark");
    EXPECT_EQ(all[4]->name, "beta");
    EXPECT_EQ(presets.fetchCustomPresets().size(), 2u);
    EXPECT_EQ(notifier->presetChanged, 2);
}

TEST_F(PresetServiceTest, startersRefuseChangeAndDeletionWithTheirTexts) {
    PresetService presets(context(), notifier);
    auto maximum = starter(MetadataPreset::maximumPrivacyID());
    try {
        presets.updatePreset(maximum, std::string("Renamed"), std::nullopt, std::nullopt, std::nullopt);
        FAIL();
    } catch (const PresetServiceError& e) {
        EXPECT_STREQ(e.what(), "Starter presets cannot be modified. Duplicate it to create a custom version.");
    }
    try {
        presets.deletePreset(maximum);
        FAIL();
    } catch (const PresetServiceError& e) {
        EXPECT_STREQ(e.what(), "Starter presets cannot be deleted.");
    }
    EXPECT_EQ(PresetServiceError::duplicateName("Work").errorDescription(), "A preset named \"Work\" already exists.");
    EXPECT_EQ(maximum->name, "Maximum Privacy");
    EXPECT_EQ(notifier->presetChanged, 0);
}

TEST_F(PresetServiceTest, anUpdateChangesOnlyTheGivenFields) {
    PresetService presets(context(), notifier);
    auto preset = presets.createPreset("Work", {MetadataCategory::location}, {"a"}, {"b"});
    const Date modified = preset->modifiedAt;
    presets.updatePreset(preset, std::nullopt, std::set{MetadataCategory::deviceInfo}, std::nullopt, std::nullopt);
    auto fresh = container->makeContext()->fetch(PresetQueries::preset(preset->id)).front();
    EXPECT_EQ(fresh->name, "Work");
    EXPECT_EQ(fresh->categoriesToRemove(), std::set{MetadataCategory::deviceInfo});
    EXPECT_EQ(fresh->specificKeysToRemove, std::vector<std::string>{"a"});
    EXPECT_EQ(fresh->specificKeysToKeep, std::vector<std::string>{"b"});
    EXPECT_GE(fresh->modifiedAt, storedPrecision(modified));
}

TEST_F(PresetServiceTest, deletingAPresetSendsItsReadyFilesBackAndLeavesRunningOnesAlone) {
    PresetService presets(context(), notifier);
    auto queue = makeQueue(context());
    auto preset = presets.createPreset("Work", {MetadataCategory::location}, {}, {});
    const auto source = userFile("a.jpg", testing::images::dirtyJPEG());
    auto files = queue->addFiles({source, source});
    queue->setPreset(preset, files);
    files[1]->setStatus(QueuedFile::Status::processing);
    context().save();
    presets.deletePreset(preset);
    auto fresh = container->makeContext()->fetch(QueueQueries::allFiles());
    std::map<std::string, std::shared_ptr<QueuedFile>> byId;
    for (auto& f : fresh) byId[f->id.uuidString()] = f;
    EXPECT_EQ(byId.at(files[0]->id.uuidString())->status(), QueuedFile::Status::staged);
    EXPECT_EQ(byId.at(files[1]->id.uuidString())->status(), QueuedFile::Status::processing);
    for (auto& f : fresh) EXPECT_FALSE(f->presetId) << f->id.uuidString();
    EXPECT_EQ(presets.fetchPreset(preset->id), nullptr);
}

TEST_F(PresetServiceTest, duplicatingTwiceGivesTwoCustomCopiesOfOneName) {
    PresetService presets(context(), notifier);
    auto maximum = starter(MetadataPreset::maximumPrivacyID());
    auto first = presets.duplicatePreset(maximum);
    auto second = presets.duplicatePreset(maximum);
    EXPECT_EQ(first->name, "Maximum Privacy (Copy)");
    EXPECT_EQ(second->name, first->name);
    EXPECT_NE(first->id, second->id);
    EXPECT_FALSE(first->isBuiltIn);
    EXPECT_EQ(first->categoriesToRemove(), maximum->categoriesToRemove());
}

}  // namespace
}  // namespace tavrin
