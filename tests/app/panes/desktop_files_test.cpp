// What the desktop shows of Tavrin outside its windows, and the pictures of the windows: the
// icon at every hicolor size, the AppStream file (validated when appstreamcli is installed), and
// each screenshot state drawn to a PNG of the window's size.

#include <QImage>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "app_icon.h"
#include "data/queries.h"
#include "data/store_defaults.h"
#include "handoff/program_launcher.h"
#include "panes_screenshot.h"
#include "panes_test_support.h"
#include "watched_folder_records.h"

namespace tavrin {
namespace {

using namespace testing;
namespace stdfs = std::filesystem;

TEST(DesktopFiles, theIconShipsAtEveryHicolorSizeAndScalable) {
    application();
    for (int size : {16, 24, 32, 48, 64, 128, 256}) {
        const auto path = fmt::format("data/icons/hicolor/{0}x{0}/apps/com.tavrin.Tavrin.png", size);
        QImage image(QString::fromStdString(path));
        ASSERT_FALSE(image.isNull()) << path;
        EXPECT_EQ(image.size(), QSize(size, size)) << path;
        EXPECT_TRUE(image.hasAlphaChannel()) << path;
        EXPECT_EQ(image.convertToFormat(QImage::Format_ARGB32), paintAppIcon(size).convertToFormat(QImage::Format_ARGB32))
            << path << " is not the drawing of app_icon.cpp: run paint_app_icons data/icons/hicolor";
    }
    const auto svg = readFile("data/icons/hicolor/scalable/apps/com.tavrin.Tavrin.svg");
    EXPECT_NE(svg.find("<svg xmlns=\"http://www.w3.org/2000/svg\""), std::string::npos);
    EXPECT_FALSE(appIcon().isNull());
}

TEST(DesktopFiles, theAppStreamFileValidates) {
    const stdfs::path metainfo = "data/metainfo/com.tavrin.Tavrin.metainfo.xml";
    ASSERT_TRUE(stdfs::exists(metainfo));
    const auto text = readFile(metainfo);
    EXPECT_NE(text.find("<id>com.tavrin.Tavrin</id>"), std::string::npos);
    EXPECT_NE(text.find("<launchable type=\"desktop-id\">com.tavrin.Tavrin.desktop</launchable>"), std::string::npos);
    if (!findExecutable("appstreamcli")) GTEST_SKIP() << "appstreamcli is not installed";
    std::string output;
    EXPECT_EQ(runCommand("appstreamcli validate --no-net " + shellQuote(metainfo.string()) + " 2>&1", &output), 0)
        << output;
}

TEST(DesktopFiles, theDesktopEntriesValidate) {
    if (!findExecutable("desktop-file-validate")) GTEST_SKIP() << "desktop-file-validate is not installed";
    int checked = 0;
    for (const auto* folder : {"data/applications", "apps/tavrin-app"}) {
        std::error_code ec;
        for (const auto& entry : stdfs::directory_iterator(folder, ec)) {
            if (entry.path().extension() != ".desktop") continue;
            std::string output;
            EXPECT_EQ(runCommand("desktop-file-validate " + shellQuote(entry.path().string()) + " 2>&1", &output), 0)
                << output;
            ++checked;
        }
    }
    if (checked == 0) GTEST_SKIP() << "no desktop entry in the tree yet";
}

// A store as a user's looks after some weeks: a preset of their own, a watched folder, history.
void fillLikeAUsersStore(StoreFixture& f) {
    f.presets.createPreset("Press kit", {MetadataCategory::location, MetadataCategory::authorIdentity,
                                         MetadataCategory::deviceInfo},
                           {"exif.Artist"}, {"tiff.Orientation"});
    auto settings = currentOrNewSettings(f.context);
    settings->setCleanCopySuffix(CleanCopySuffixKind::custom);
    settings->cleanCopyCustomSuffix = "-redacted";
    settings->autoProcessOnAdd = true;
    settings->defaultPresetId = MetadataPreset::maximumPrivacyID();
    settings->showMenuBarIcon = true;
    const auto now = std::chrono::system_clock::now();
    struct Row {
        const char* name;
        const char* output;
        int minutesAgo;
        std::int64_t before, after;
        const char* preset;
        bool retained;
    };
    const Row rows[] = {
        {"interview-notes.docx", "interview-notes-redacted.docx", 12, 48'210, 31'877, "Maximum Privacy", true},
        {"IMG_4471.jpg", "IMG_4471-redacted.jpg", 40, 3'912'004, 3'874'310, "Location Only", true},
        {"court-filing.pdf", "court-filing-redacted.pdf", 95, 1'204'551, 1'150'020, "Press kit", true},
        {"budget-2026.xlsx", "budget-2026.xlsx", 180, 88'410, 61'020, "Standard Sharing", false},
        {"voice-memo.m4a", "voice-memo-redacted.m4a", 1500, 2'310'000, 2'309'100, "Maximum Privacy", true},
    };
    for (const auto& row : rows) {
        auto record = std::make_shared<ProcessingHistory>();
        record->id = Uuid::random();
        record->fileName = row.name;
        record->processedAt = now - std::chrono::minutes(row.minutesAgo);
        record->originalSize = row.before;
        record->cleanedSize = row.after;
        record->removedItemCount = 7;
        record->presetName = row.preset;
        record->outputRetained = row.retained;
        const auto output = (row.retained ? f.dir / "Documents" : f.dir / "share") / row.output;
        record->cleanedFilePath = output.string();
        record->originalFilePath = (f.dir / "Documents" / row.name).string();
        if (row.retained) writeFile(output, "cleaned");
        writeFile(f.dir / "Documents" / row.name, "original");
        f.context.insert(record);
    }
    f.context.save();
}

TEST(PanesScreenshot, eachStateIsDrawnToAPngOfTheWindowsSize) {
    StoreFixture f;
    stdfs::create_directories(f.dir / "Documents");
    fillLikeAUsersStore(f);
    const stdfs::path out = std::getenv("TAVRIN_SCREENSHOT_DIR") ? std::getenv("TAVRIN_SCREENSHOT_DIR") : (f.dir / "shots");
    stdfs::create_directories(out);
    auto scans = f.dir / "Scans";
    stdfs::create_directories(scans);
    WatchedFolderRecords(f.context, f.notifier).add(scans);
    const std::pair<const char*, QSize> states[] = {
        {"settings", {720, 480}}, {"presets", {760, 560}}, {"watched-folders", {760, 560}}, {"file-manager", {760, 620}}, {"history", {760, 480}}, {"tour", {640, 520}}};
    for (const auto& [state, size] : states) {
        const auto png = out / (std::string(state) + ".png");
        ASSERT_TRUE(renderPanesScreenshot(state, QString::fromStdString(png.string()), f.store)) << state;
        QImage image(QString::fromStdString(png.string()));
        ASSERT_FALSE(image.isNull()) << state;
        EXPECT_EQ(image.size() / image.devicePixelRatio(), size) << state;
    }
    EXPECT_FALSE(renderPanesScreenshot("queue", QString::fromStdString((out / "x.png").string()), f.store));
    EXPECT_FALSE(stdfs::exists(out / "x.png"));
    EXPECT_EQ(f.reopen()->mainContext().fetch(HistoryQueries::recent()).size(), 5u) << "drawing changes nothing";
}

}  // namespace
}  // namespace tavrin
