#pragma once
// The welcome tour: five steps with their cards, shown at first start and reopened from the Help
// menu. The version of the tour last completed is kept in the app's preferences, so a new tour
// version shows again and a user of the earlier onboarding is not shown it twice.

#include <QDialog>

#include <functional>
#include <memory>

#include "data/app_settings.h"
#include "handoff/welcome_tour_model.h"

class QLabel;
class QPushButton;
class QSettings;
class QStackedWidget;

namespace tavrin {

// Where the tour's versions are kept.
class TourPreferences {
public:
    virtual ~TourPreferences() = default;
    virtual int lastCompletedVersion() const = 0;
    virtual void setLastCompletedVersion(int version) = 0;
    virtual bool legacyOnboarded() const = 0;
};

// The preferences in an INI file of the app's own (QSettings), under the tour's keys.
class FileTourPreferences final : public TourPreferences {
public:
    explicit FileTourPreferences(const QString& iniPath);
    ~FileTourPreferences() override;
    // $XDG_CONFIG_HOME/Tavrin/tavrin-app.conf.
    static QString defaultPath();
    int lastCompletedVersion() const override;
    void setLastCompletedVersion(int version) override;
    bool legacyOnboarded() const override;

private:
    std::unique_ptr<QSettings> settings_;
};

// Whether to show the tour at start; records the migrated version of an earlier onboarding.
bool shouldShowWelcomeTour(TourPreferences& preferences);

class WelcomeTourDialog final : public QDialog {
    Q_OBJECT
public:
    // `outputMode` decides which way of cleaning the "Clean a file" step calls the default.
    // `openFileManagerSetup` is offered on the setup step (may be empty).
    WelcomeTourDialog(TourPreferences& preferences, CleanOutputMode outputMode,
                      std::function<void()> openFileManagerSetup = {}, QWidget* parent = nullptr);

    WelcomeTourStep step() const { return step_; }
    void goTo(WelcomeTourStep step);
    void next();
    void back();
    // Marks the tour completed at the current version and closes.
    void finish();

    QPushButton* backButton() const { return back_; }
    QPushButton* nextButton() const { return next_; }
    QLabel* titleLabel() const { return title_; }
    QWidget* currentPage() const;

    // Closing the tour early counts as having seen it: it does not come back at every start.
    void reject() override;

private:
    QWidget* page(WelcomeTourStep step, CleanOutputMode outputMode, const std::function<void()>& openSetup);

    TourPreferences& preferences_;
    WelcomeTourStep step_ = WelcomeTourStep::welcome;
    QStackedWidget* pages_ = nullptr;
    QLabel* eyebrow_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* subtitle_ = nullptr;
    QLabel* progress_ = nullptr;
    QPushButton* back_ = nullptr;
    QPushButton* next_ = nullptr;
    QPushButton* skip_ = nullptr;
};

}  // namespace tavrin
