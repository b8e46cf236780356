// The pure rules of watched folders: which names are left alone, when a file has settled, and
// which watchers a change of records or rules stops, restarts or starts.

#include <gtest/gtest.h>

#include "intake/watched_folder_intake_decider.h"
#include "intake/watched_folders_reconciler.h"

namespace tavrin {
namespace {

using Verdict = WatchedFolderIntakeVerdict;

TEST(WatchedFolderIntakeDecider, filterVerdictsComeInTheirOrder) {
    const WatchedFolderIntakeDecider decider(2.0, {" -Redacted "});
    struct Case {
        const char* name;
        bool regular;
        Verdict expected;
    };
    const std::vector<Case> cases{
        {"photo.jpg", false, Verdict::ignore(IgnoreReason::notARegularFile)},
        {".photo.jpg", true, Verdict::ignore(IgnoreReason::hidden)},
        {".~lock.report.docx#", true, Verdict::ignore(IgnoreReason::hidden)},
        {"~$report.docx", true, Verdict::ignore(IgnoreReason::temporary)},
        {"~report.docx", true, Verdict::ignore(IgnoreReason::temporary)},
        {"photo.jpg.crdownload", true, Verdict::ignore(IgnoreReason::temporary)},
        {"photo.JPG.PART", true, Verdict::ignore(IgnoreReason::temporary)},
        {"photo.jpg.partial", true, Verdict::ignore(IgnoreReason::temporary)},
        {"photo.jpg.download", true, Verdict::ignore(IgnoreReason::temporary)},
        {"scan.tmp", true, Verdict::ignore(IgnoreReason::temporary)},
        // A temporary name that also looks like output is temporary: that rule comes first.
        {"photo-clean.tmp", true, Verdict::ignore(IgnoreReason::temporary)},
        {"photo-clean.jpg", true, Verdict::ignore(IgnoreReason::tavrinOutput)},
        {"Report-FINAL.pdf", true, Verdict::ignore(IgnoreReason::tavrinOutput)},
        {"photo-clean 2.jpg", true, Verdict::waitForStability()},
        {"memo-redacted.docx", true, Verdict::ignore(IgnoreReason::tavrinOutput)},
        {"notes.txt", true, Verdict::ignore(IgnoreReason::unsupportedType)},
        {"no-extension", true, Verdict::ignore(IgnoreReason::unsupportedType)},
        {"clip.mov", true, Verdict::ignore(IgnoreReason::notVerifiedCleanable)},
        {"song.mp3", true, Verdict::ignore(IgnoreReason::notVerifiedCleanable)},
        {"legacy.doc", true, Verdict::ignore(IgnoreReason::notVerifiedCleanable)},
        {"photo.jpg", true, Verdict::waitForStability()},
        {"PHOTO.JPEG", true, Verdict::waitForStability()},
        {"report.pdf", true, Verdict::waitForStability()},
        {"board.docx", true, Verdict::waitForStability()},
    };
    for (const auto& c : cases)
        EXPECT_EQ(describe(decider.filterVerdict(std::filesystem::path("/in") / c.name, c.regular)), describe(c.expected))
            << c.name;
}

TEST(WatchedFolderIntakeDecider, outputSuffixesAlwaysHoldTheTwoBuiltInOnesOnceEach) {
    struct Case {
        std::vector<std::string> given;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases{
        {{}, {"-clean", "-final"}},
        {{"-CLEAN", "  ", ""}, {"-clean", "-final"}},
        {{" -Safe\t", "-safe", "-final"}, {"-clean", "-final", "-safe"}},
    };
    for (const auto& c : cases) EXPECT_EQ(WatchedFolderIntakeDecider(1, c.given).outputSuffixes(), c.expected);
    EXPECT_EQ(WatchedFolderIntakeDecider(-3).stabilityInterval(), 0);
}

TEST(WatchedFolderIntakeDecider, aFileIsEnqueuedOnlyWhenUnchangedForTheWholeInterval) {
    const WatchedFolderIntakeDecider decider(2.0);
    const WatchedFolderFileState state{1000, 50.0};
    struct Case {
        const char* what;
        double now;
        std::optional<std::pair<WatchedFolderFileState, double>> previous;
        Verdict expected;
    };
    const std::vector<Case> cases{
        {"first sighting", 10, std::nullopt, Verdict::waitForStability()},
        {"grew", 20, std::pair{WatchedFolderFileState{900, 50.0}, 10.0}, Verdict::waitForStability()},
        {"touched", 20, std::pair{WatchedFolderFileState{1000, 49.0}, 10.0}, Verdict::waitForStability()},
        {"too soon", 11.9, std::pair{state, 10.0}, Verdict::waitForStability()},
        {"exactly the interval", 12, std::pair{state, 10.0}, Verdict::enqueue()},
        {"long settled", 100, std::pair{state, 10.0}, Verdict::enqueue()},
    };
    for (const auto& c : cases) EXPECT_EQ(decider.stabilityVerdict(c.now, state, c.previous), c.expected) << c.what;
}

TEST(WatchedFolderIntakeDecider, itsKeyChangesWithTheRulesOnly) {
    EXPECT_EQ(WatchedFolderIntakeDecider(2, {"-x"}).key(), WatchedFolderIntakeDecider(2, {" -X"}).key());
    EXPECT_NE(WatchedFolderIntakeDecider(2, {"-x"}).key(), WatchedFolderIntakeDecider(2, {"-y"}).key());
    EXPECT_NE(WatchedFolderIntakeDecider(2).key(), WatchedFolderIntakeDecider(3).key());
}

Uuid idNumber(std::uint8_t n) {
    Uuid id;
    id.bytes[15] = n;
    return id;
}

TEST(WatchedFoldersReconciler, planStopsRestartsAndStartsWhatChanged) {
    using namespace WatchedFoldersReconciler;
    const auto a = idNumber(1), b = idNumber(2), c = idNumber(3), d = idNumber(4);
    struct Case {
        const char* what;
        std::vector<DesiredFolder> desired;
        std::vector<RunningWatcher> running;
        std::string key;
        Plan expected;
    };
    const std::vector<Case> cases{
        {"nothing at all", {}, {}, "k", {}},
        {"all unchanged", {{a, "/a"}, {b, "/b"}}, {{a, "/a", "k"}, {b, "/b", "k"}}, "k", {}},
        {"new and gone", {{a, "/a"}, {c, "/c"}}, {{a, "/a", "k"}, {b, "/b", "k"}}, "k", {{b}, {}, {c}}},
        {"path moved", {{a, "/a2"}}, {{a, "/a", "k"}}, "k", {{}, {a}, {}}},
        {"rules changed", {{a, "/a"}, {b, "/b"}, {d, "/d"}}, {{a, "/a", "old"}, {b, "/b", "k2"}, {c, "/c", "old"}}, "k2",
         {{c}, {a}, {d}}},
        {"later duplicate wins", {{a, "/x"}, {a, "/a"}}, {{a, "/a", "k"}, {a, "/b", "k"}}, "k", {{}, {a}, {}}},
    };
    for (const auto& c : cases) {
        const auto got = plan(c.desired, c.running, c.key);
        EXPECT_EQ(got.toStop, c.expected.toStop) << c.what;
        EXPECT_EQ(got.toRestart, c.expected.toRestart) << c.what;
        EXPECT_EQ(got.toStart, c.expected.toStart) << c.what;
    }
}

}  // namespace
}  // namespace tavrin
