// The ticks of the inspector as a file's configuration: a category decides for its items unless
// one item is chosen against it, structural items never move, and the empty choice is recorded.

#include <gtest/gtest.h>

#include "file_configuration.h"

namespace tavrin {
namespace {

MetadataItem item(std::string id, MetadataCategory category, bool removable = true) {
    return MetadataItem{id, id.substr(id.find('.') + 1), id, MetadataValue::string("x"), category, MetadataSource::imageIO,
                        removable};
}

const MetadataItem gps = item("exif.GPSLatitude", MetadataCategory::location);
const MetadataItem city = item("iptc.City", MetadataCategory::location);
const MetadataItem make = item("tiff.Make", MetadataCategory::deviceInfo);
const MetadataItem orientation = item("tiff.Orientation", MetadataCategory::colorTechnical, false);

MetadataTree tree() { return MetadataTree::build({gps, city, make, orientation}, "/x.jpg", FileType::jpeg); }

struct Step {
    enum Kind { category, single } kind;
    MetadataCategory what;
    const MetadataItem* one;
    bool remove;
};

struct Case {
    const char* name;
    std::vector<Step> steps;
    std::set<std::string> removed;  // items the file's selection removes afterwards
    QueuedFile::Status status;
    bool emptyChoice;
};

TEST(FileConfiguration, ticksBuildTheSelectionAFileIsCleanedWith) {
    const std::vector<Case> cases = {
        {"a category takes all its items", {{Step::category, MetadataCategory::location, nullptr, true}},
         {"exif.GPSLatitude", "iptc.City"}, QueuedFile::Status::configured, false},
        {"one item kept against its category",
         {{Step::category, MetadataCategory::location, nullptr, true}, {Step::single, {}, &city, false}},
         {"exif.GPSLatitude"}, QueuedFile::Status::configured, false},
        {"one item removed without its category", {{Step::single, {}, &make, true}}, {"tiff.Make"},
         QueuedFile::Status::configured, false},
        {"a category's tick drops the single choices inside it",
         {{Step::single, {}, &gps, true}, {Step::category, MetadataCategory::location, nullptr, false}}, {},
         QueuedFile::Status::staged, true},
        {"a structural item cannot be ticked", {{Step::single, {}, &orientation, true}}, {}, QueuedFile::Status::staged,
         true},
        {"clearing everything is an explicit empty choice",
         {{Step::category, MetadataCategory::location, nullptr, true},
          {Step::category, MetadataCategory::location, nullptr, false}},
         {}, QueuedFile::Status::staged, true},
    };
    const auto t = tree();
    for (const auto& c : cases) {
        QueuedFile file(Uuid::random(), "x", "jpg", "/staging/x.jpg", 10, FileType::jpeg, {});
        file.presetId = Uuid::random();
        for (const auto& step : c.steps) {
            if (step.kind == Step::category) FileConfiguration::setCategory(file, step.what, step.remove, t);
            else FileConfiguration::setItem(file, *step.one, step.remove);
            FileConfiguration::selectionChanged(file);
        }
        std::set<std::string> removed;
        for (const auto& i : t.allItems())
            if (FileConfiguration::isMarkedForRemoval(file, i)) removed.insert(i.id);
        EXPECT_EQ(removed, c.removed) << c.name;
        EXPECT_EQ(file.status(), c.status) << c.name;
        EXPECT_EQ(file.userDidConfigureEmptySelection, c.emptyChoice) << c.name;
        EXPECT_FALSE(file.presetId) << c.name << ": a choice by hand leaves the preset";
    }
}

TEST(FileConfiguration, aCleanedFileKeepsItsStatusWhenItsTicksChange) {
    QueuedFile file(Uuid::random(), "x", "jpg", "/staging/x.jpg", 10, FileType::jpeg, {});
    file.setStatus(QueuedFile::Status::completed);
    FileConfiguration::setCategory(file, MetadataCategory::location, true, tree());
    FileConfiguration::selectionChanged(file);
    EXPECT_EQ(file.status(), QueuedFile::Status::completed);
}

TEST(FileConfiguration, reasonsNameWhyAnItemStayedOrWent) {
    CleaningProfile profile;
    profile.categoriesToRemove = {MetadataCategory::location};
    profile.specificKeysToKeep = {"iptc.City"};
    profile.specificKeysToRemove = {"tiff.Make"};
    EXPECT_EQ(FileConfiguration::retainedReason(orientation, profile), "Needed to open the file");
    EXPECT_EQ(FileConfiguration::retainedReason(city, profile), "You chose to keep it");
    EXPECT_EQ(FileConfiguration::retainedReason(item("exif.Software", MetadataCategory::softwareInfo), profile),
              "Software Information was not selected");
    EXPECT_EQ(FileConfiguration::retainedReason(gps, profile), "The format's writer keeps it");
    EXPECT_EQ(FileConfiguration::removedReason(gps, profile), "Location Data selected");
    EXPECT_EQ(FileConfiguration::removedReason(make, profile), "You chose to remove it");
}

}  // namespace
}  // namespace tavrin
