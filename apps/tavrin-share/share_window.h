#pragma once
// The share window: three choices for the files another program offers. It turns the files into
// tavrin: links and opens them one after the other; it touches neither the store nor the queue.

#include <QLabel>
#include <QPushButton>
#include <QWidget>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "handoff/url_sequence_opener.h"

namespace tavrin {

class ShareWindow : public QWidget {
    Q_OBJECT

public:
    using Files = std::vector<std::filesystem::path>;
    // Delivers the offered files, once, on the window's thread (at once or later).
    using FileLoader = std::function<void(std::function<void(Files)> completion)>;

    struct Collaborators {
        FileLoader loadFileURLs;
        URLSequenceOpener::OpenURL openURL;
        PostDelayed postDelayed;  // optional: with it, a link that gets no answer in `timeout` is passed over
        std::optional<std::chrono::milliseconds> timeout;
    };

    explicit ShareWindow(Collaborators collaborators, QWidget* parent = nullptr);

    const Files& fileURLs() const { return fileURLs_; }
    QLabel* statusLabel() const { return statusLabel_; }
    QPushButton* addButton() const { return addButton_; }
    QPushButton* openButton() const { return openButton_; }
    QPushButton* cancelButton() const { return cancelButton_; }

    // "Ready to add 2 files to the Tavrin queue.", or "No supported files were shared."
    static QString statusText(std::size_t fileCount);

signals:
    // Emitted once when the window is done: 0 after the links were opened (or nothing was to be
    // added), 1 when the user cancelled.
    void finished(int result);

public slots:
    void addToQueue();
    void openTavrin();
    void cancelShare();

private:
    void loadFileURLs(std::function<void()> then);
    void openTavrinWithCurrentFiles(bool allowOpeningWithoutFiles);
    void finish(int result);

    Collaborators collaborators_;
    Files fileURLs_;
    QLabel* statusLabel_ = nullptr;
    QPushButton* addButton_ = nullptr;
    QPushButton* openButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
    bool busy_ = false;
    bool finished_ = false;
};

}  // namespace tavrin
