// The queue table over a real store: what each column shows, sorting by value, the reason of a
// failure, rows dragged out as the cleaned files, and changes saved elsewhere reaching the view.

#include <QLabel>
#include <QMimeData>
#include <QSortFilterProxyModel>
#include <QUrl>

#include "app_fixture.h"
#include "data/queries.h"

namespace tavrin::testing {
namespace {

namespace stdfs = std::filesystem;

using QueueTableModelTest = AppFixture;

QString cell(QAbstractItemModel* model, int row, int column, int role = Qt::DisplayRole) {
    return model->data(model->index(row, column), role).toString();
}

TEST_F(QueueTableModelTest, showsEachFileWithItsStatusPresetItemsAndSize) {
    start();
    const auto ids = addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    ASSERT_EQ(ids.size(), 1);
    auto* model = window().queueModel();
    ASSERT_EQ(model->rowCount(), 1);
    EXPECT_EQ(cell(model, 0, QueueTableModel::nameColumn), "photo.jpg");
    EXPECT_EQ(cell(model, 0, QueueTableModel::statusColumn), "Staged");
    EXPECT_EQ(cell(model, 0, QueueTableModel::presetColumn), "—");
    EXPECT_GT(cell(model, 0, QueueTableModel::removeColumn).toInt(), 0) << "the inspection's count of removable items";
    EXPECT_EQ(cell(model, 0, QueueTableModel::savedColumn), "—") << "nothing saved before a clean";
    EXPECT_FALSE(model->data(model->index(0, QueueTableModel::nameColumn), Qt::DecorationRole).isNull());

    window().selectIds(ids);
    window().applyPresetToSelection(MetadataPreset::locationOnlyID());
    EXPECT_EQ(cell(model, 0, QueueTableModel::statusColumn), "Ready");
    EXPECT_EQ(cell(model, 0, QueueTableModel::presetColumn), QStringLiteral("Location Only"));
}

TEST_F(QueueTableModelTest, sortsSizesAndCountsAsNumbersNotText) {
    start();
    // 9 KB-ish against 1xx KB-ish: as text "9…" would sort after "1…".
    addAndInspect({userFile("small.png", images::encodePNG(8, 8)), userFile("large.png", images::encodePNG(300, 300)),
                   userFile("medium.png", images::encodePNG(60, 60))});
    auto* sorted = window().sortedModel();
    sorted->sort(QueueTableModel::sizeColumn, Qt::AscendingOrder);
    EXPECT_EQ(cell(sorted, 0, QueueTableModel::nameColumn), "small.png");
    EXPECT_EQ(cell(sorted, 1, QueueTableModel::nameColumn), "medium.png");
    EXPECT_EQ(cell(sorted, 2, QueueTableModel::nameColumn), "large.png");
    sorted->sort(QueueTableModel::nameColumn, Qt::DescendingOrder);
    EXPECT_EQ(cell(sorted, 0, QueueTableModel::nameColumn), "small.png");
}

TEST_F(QueueTableModelTest, aFailedRowCarriesItsReasonAsTooltip) {
    start();
    const auto ids = addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    auto context = app().container().makeContext();
    auto file = context->fetch(QueueQueries::allFiles()).front();
    file->setStatus(QueuedFile::Status::failed);
    file->errorMessage = "Output verification failed (GPS remains)";
    context->save();
    window().reload();
    auto* model = window().queueModel();
    EXPECT_EQ(cell(model, 0, QueueTableModel::statusColumn), "Failed");
    EXPECT_EQ(cell(model, 0, QueueTableModel::statusColumn, Qt::ToolTipRole), "Output verification failed (GPS remains)");
    window().selectIds(ids);
    EXPECT_TRUE(window().inspector()->detail()->text().contains("Output verification failed (GPS remains)"));
}

TEST_F(QueueTableModelTest, showsWhatAnotherProcessSavedAfterAReload) {
    start();
    addAndInspect({userFile("photo.jpg", images::dirtyJPEG())});
    auto* model = window().queueModel();
    EXPECT_EQ(cell(model, 0, QueueTableModel::statusColumn), "Staged");
    // Another writer of the same store, as the command line would be.
    auto other = ModelContainerFactory::atURL(dir_ / "Tavrin" / "Tavrin.store");
    auto file = other->mainContext().fetch(QueueQueries::allFiles()).front();
    file->setStatus(QueuedFile::Status::configured);
    file->presetId = MetadataPreset::maximumPrivacyID();
    other->mainContext().save();
    window().reload();
    EXPECT_EQ(cell(model, 0, QueueTableModel::statusColumn), "Ready");
    EXPECT_EQ(cell(model, 0, QueueTableModel::presetColumn), "Maximum Privacy");
}

TEST_F(QueueTableModelTest, dragsOutOnlyCleanedRowsAsTheirCleanFiles) {
    start();
    const auto ids = addAndInspect({userFile("a.jpg", images::dirtyJPEG()), userFile("b.png", images::dirtyPNG())});
    const auto [completed, failed] = cleanAndWait({ids[0]}, CleanMode::copy);
    ASSERT_EQ(completed, 1);
    ASSERT_EQ(failed, 0);
    auto* model = window().queueModel();
    const int cleanedRow = model->rowOf(ids[0]);
    const int otherRow = model->rowOf(ids[1]);
    EXPECT_TRUE(model->flags(model->index(cleanedRow, 0)) & Qt::ItemIsDragEnabled);
    EXPECT_FALSE(model->flags(model->index(otherRow, 0)) & Qt::ItemIsDragEnabled);

    std::unique_ptr<QMimeData> mime(model->mimeData({model->index(cleanedRow, 0), model->index(cleanedRow, 1),
                                                     model->index(otherRow, 0)}));
    ASSERT_TRUE(mime);
    EXPECT_TRUE(mime->hasFormat("text/uri-list"));
    ASSERT_EQ(mime->urls().size(), 1) << "one URL per cleaned row, none for the row not cleaned";
    EXPECT_EQ(mime->urls()[0], QUrl::fromLocalFile(QString::fromStdString((dir_ / "Documents" / "a-clean.jpg").string())));
    EXPECT_EQ(model->mimeData({model->index(otherRow, 0)}), nullptr);
}

}  // namespace
}  // namespace tavrin::testing
