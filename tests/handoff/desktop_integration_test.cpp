// The per-user desktop integration: each route hands a hostile file name to Tavrin as one whole
// argument (run through the same expansion each file manager applies), install and uninstall
// touch only what is ours, and uninstall leaves the folders as they were.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sys/stat.h>

#include "handoff/desktop_integration.h"
#include "support/test_support.h"

namespace tavrin {
namespace {

namespace fsys = std::filesystem;
using testing::readFile;

void put(const fsys::path& path, std::string_view text) {
    fsys::create_directories(path.parent_path());
    testing::writeFile(path, text);
}

const std::string kHostileName = "a'b\"c;rm -rf ~ $(x).pdf";

class FakeLauncher : public ProgramLauncher {
public:
    std::set<std::string> installed{"xdg-mime"};
    fsys::path mimeApps;
    std::vector<std::vector<std::string>> ran;

    bool isInstalled(std::string_view program) const override { return installed.count(std::string(program)) > 0; }
    bool launch(const std::vector<std::string>& argv) override {
        ran.push_back(argv);
        return true;
    }
    // xdg-mime default records the handler as the real one does.
    std::optional<int> run(const std::vector<std::string>& argv) override {
        ran.push_back(argv);
        std::string text = fsys::exists(mimeApps) ? readFile(mimeApps) : "";
        const std::string line = argv[3] + "=" + argv[2] + ";\n";
        if (text.find(line) != std::string::npos) return 0;
        const auto header = text.find("[Default Applications]\n");
        if (header == std::string::npos) text += "[Default Applications]\n" + line;
        else text.insert(header + 23, line);
        put(mimeApps, text);
        return 0;
    }
};

std::map<std::string, std::string> snapshot(const fsys::path& root) {
    std::map<std::string, std::string> tree;
    for (auto it = fsys::recursive_directory_iterator(root); it != fsys::recursive_directory_iterator(); ++it)
        tree[it->path().lexically_relative(root).string()] = it->is_directory() ? "<dir>" : readFile(it->path());
    return tree;
}

std::string unescapeKeyFile(std::string_view value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
            const char next = value[++i];
            out += next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : next == 's' ? ' ' : next;
        } else {
            out += value[i];
        }
    }
    return out;
}

std::string unescapeXML(std::string text) {
    for (const auto& [entity, c] : std::vector<std::pair<std::string, std::string>>{
             {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}}) {
        for (auto at = text.find(entity); at != std::string::npos; at = text.find(entity, at + c.size()))
            text.replace(at, entity.size(), c);
    }
    return text;
}

// The value of `key` in a key file, within the group that starts at `group` (first match).
std::string keyFileEntry(const std::string& text, const std::string& key, const std::string& group = "") {
    std::size_t from = group.empty() ? 0 : text.find(group);
    const auto at = text.find("\n" + key + "=", from);
    EXPECT_NE(at, std::string::npos) << key;
    const auto start = at + key.size() + 2;
    return unescapeKeyFile(text.substr(start, text.find('\n', start) - start));
}

// The Exec expansion of the desktop entry format: words split at blanks, "…" with backslash
// escapes, and a field code standing alone becomes one argument per file.
std::vector<std::string> expandDesktopExec(const std::string& exec, const std::vector<std::string>& files) {
    std::vector<std::string> argv;
    std::string word;
    bool inWord = false, quoted = false;
    auto flush = [&] {
        if (!inWord) return;
        if (word == "%F" || word == "%U" || word == "%u" || word == "%f") argv.insert(argv.end(), files.begin(), files.end());
        else argv.push_back(word);
        word.clear();
        inWord = false;
    };
    for (std::size_t i = 0; i < exec.size(); ++i) {
        const char c = exec[i];
        if (quoted) {
            if (c == '\\' && i + 1 < exec.size()) word += exec[++i];
            else if (c == '"') quoted = false;
            else word += c;
        } else if (c == ' ') {
            flush();
        } else if (c == '"') {
            quoted = inWord = true;
        } else {
            word += c;
            inWord = true;
        }
    }
    flush();
    return argv;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    const auto at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what << " in " << text;
    if (at != std::string::npos) text.replace(at, what.size(), with);
    return text;
}

class DesktopIntegrationTest : public ::testing::Test {
protected:
    void SetUp() override {
        locations.dataHome = dir / "data";
        locations.configHome = dir / "config";
        locations.configDirs = {dir / "etc"};
        fsys::create_directories(locations.dataHome);
        fsys::create_directories(locations.configHome);
        launcher.mimeApps = IntegrationFiles::mimeAppsFile(locations);
        // Program paths with blanks and quotes of their own.
        const auto bin = dir / "my bin 'q\" $HOME";
        fsys::create_directories(bin);
        programs = {bin / "tavrin", bin / "tavrin-share"};
        for (const auto& program : {programs.tavrin, programs.tavrinShare}) {
            put(program, "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\0' \"$a\"; done > " +
                                   testing::shellQuote((dir / "argv").string()) + "\n");
            fsys::permissions(program, fsys::perms::owner_all);
        }
        hostile = (dir / kHostileName).string();
        put(hostile, "%PDF-1.4");
    }

    // The arguments the fake program received, split at NUL.
    std::vector<std::string> receivedArguments() {
        std::vector<std::string> argv;
        const auto text = readFile(dir / "argv");
        std::size_t start = 0;
        for (auto end = text.find('\0'); end != std::string::npos; start = end + 1, end = text.find('\0', start))
            argv.push_back(text.substr(start, end - start));
        fsys::remove(dir / "argv");
        return argv;
    }

    void runWithShell(const std::string& command) { ASSERT_EQ(testing::runCommand("exec " + command), 0) << command; }

    void runDirectly(const std::vector<std::string>& argv) {
        SpawnProgramLauncher real;
        ASSERT_EQ(real.run(argv), 0);
    }

    testing::TempDir dir;
    IntegrationLocations locations;
    IntegrationPrograms programs;
    FakeLauncher launcher;
    std::string hostile;
};

TEST_F(DesktopIntegrationTest, everyRouteHandsAHostileNameOverAsOneArgument) {
    put(IntegrationFiles::thunarActionsFile(locations), "<?xml version=\"1.0\"?>\n<actions>\n</actions>\n");
    DesktopIntegration integration(locations, launcher);
    const auto report = integration.install(programs);
    ASSERT_TRUE(report.problems.empty()) << report.problems.front();
    const std::vector<std::string> cleanArgs{"open-url", "--menu", "clean:maximum-privacy", "--", hostile};
    const auto& data = locations.dataHome;

    // Nautilus and Caja run the script with the files as its arguments.
    for (const auto& script : {data / "nautilus/scripts/Tavrin/Clean Everything",
                               locations.configHome / "caja/scripts/Tavrin/Clean Everything"}) {
        struct stat info {};
        ASSERT_EQ(::stat(script.c_str(), &info), 0);
        EXPECT_TRUE(info.st_mode & S_IXUSR);
        runWithShell(testing::shellQuote(script.string()) + " " + testing::shellQuote(hostile));
        EXPECT_EQ(receivedArguments(), cleanArgs) << script;
    }
    runWithShell(testing::shellQuote((data / "nautilus/scripts/Tavrin/Clean with Preset/Location Only").string()) +
                 " " + testing::shellQuote(hostile));
    EXPECT_EQ(receivedArguments(),
              (std::vector<std::string>{"open-url", "--menu", "clean:location-only", "--", hostile}));

    // Nemo (Quote=single) writes each path as '…' with ' as '\'' and splits the line as a shell.
    const auto nemo = readFile(data / "nemo/actions/tavrin-clean-everything.nemo_action");
    EXPECT_NE(nemo.find("\nQuote=single\n"), std::string::npos);
    std::string nemoQuoted = "'";
    for (char c : hostile) nemoQuoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    runWithShell(replaced(keyFileEntry(nemo, "Exec"), "%F", nemoQuoted + "'"));
    EXPECT_EQ(receivedArguments(), cleanArgs);

    // Thunar puts each path through g_shell_quote.
    const auto uca = readFile(IntegrationFiles::thunarActionsFile(locations));
    const auto commandStart = uca.find("<command>") + 9;
    const auto command = unescapeXML(uca.substr(commandStart, uca.find("</command>") - commandStart));
    runWithShell(replaced(command, "%F", testing::shellQuote(hostile)));
    EXPECT_EQ(receivedArguments(), cleanArgs);

    // Dolphin, the Open With entry and the link handler follow the desktop entry format.
    const auto dolphin = readFile(data / "kio/servicemenus/tavrin.desktop");
    runDirectly(expandDesktopExec(keyFileEntry(dolphin, "Exec", "[Desktop Action cleanEverything]"), {hostile}));
    EXPECT_EQ(receivedArguments(), cleanArgs);
    const auto presets = readFile(data / "kio/servicemenus/tavrin-presets.desktop");
    runDirectly(expandDesktopExec(keyFileEntry(presets, "Exec", "[Desktop Action cleanClientDeliverable]"), {hostile}));
    EXPECT_EQ(receivedArguments(),
              (std::vector<std::string>{"open-url", "--menu", "clean:client-deliverable", "--", hostile}));
    const auto openWith = readFile(data / "applications/tavrin-share.desktop");
    runDirectly(expandDesktopExec(keyFileEntry(openWith, "Exec"), {hostile, "/second file.jpg"}));
    EXPECT_EQ(receivedArguments(), (std::vector<std::string>{hostile, "/second file.jpg"}));
    const auto handler = readFile(data / "applications/tavrin.desktop");
    EXPECT_NE(handler.find("\nMimeType=x-scheme-handler/tavrin;\n"), std::string::npos);
    runDirectly(expandDesktopExec(keyFileEntry(handler, "Exec"), {"tavrin://clean?file=/a%27b"}));
    EXPECT_EQ(receivedArguments(), (std::vector<std::string>{"open-url", "tavrin://clean?file=/a%27b"}));

    // No generated file holds a file name; every one names Tavrin's program by its full path.
    for (const auto& file : IntegrationFiles::wholeFiles(locations, programs))
        EXPECT_EQ(file.content.find(kHostileName), std::string::npos) << file.path;
}

TEST_F(DesktopIntegrationTest, uninstallLeavesEverythingAsItWas) {
    const std::string userActions =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n<action>\n\t<name>Mine</name>\n"
        "\t<unique-id>1234-1</unique-id>\n\t<command>echo %f</command>\n</action>\n</actions>\n";
    put(IntegrationFiles::thunarActionsFile(locations), userActions);
    put(IntegrationFiles::mimeAppsFile(locations), "[Default Applications]\ntext/plain=org.gnome.TextEditor.desktop;\n");
    fsys::create_directories(locations.dataHome / "applications");
    put(locations.dataHome / "applications/other.desktop", "[Desktop Entry]\nName=Other\n");
    const auto before = snapshot(dir.path() / "data");
    const auto configBefore = snapshot(dir.path() / "config");

    DesktopIntegration integration(locations, launcher);
    EXPECT_EQ(integration.status().routes.fileManagerMenu, false);
    auto report = integration.install(programs);
    ASSERT_TRUE(report.problems.empty()) << report.problems.front();
    // Installing twice replaces our own files and actions and adds nothing new.
    report = integration.install(programs);
    ASSERT_TRUE(report.problems.empty()) << report.problems.front();
    const auto uca = readFile(IntegrationFiles::thunarActionsFile(locations));
    EXPECT_NE(uca.find("<unique-id>1234-1</unique-id>"), std::string::npos);
    EXPECT_EQ(uca.find("tavrin-clean-everything"), uca.rfind("tavrin-clean-everything"));
    ASSERT_EQ(launcher.ran.size(), 2u);
    EXPECT_EQ(launcher.ran[0], (std::vector<std::string>{"xdg-mime", "default", "tavrin.desktop", "x-scheme-handler/tavrin"}));

    const auto status = integration.status();
    EXPECT_EQ(status.routes.fileManagerMenu, true);
    EXPECT_EQ(status.routes.openWith, true);
    EXPECT_EQ(status.routes.urlScheme, true);
    EXPECT_EQ(status.fileManagers, (std::vector<std::string>{"Caja", "Dolphin", "Nautilus", "Nemo", "Thunar"}));

    report = integration.uninstall();
    EXPECT_TRUE(report.problems.empty());
    EXPECT_EQ(snapshot(dir.path() / "data"), before);
    EXPECT_EQ(snapshot(dir.path() / "config"), configBefore);
    const auto after = integration.status();
    EXPECT_EQ(after.routes.fileManagerMenu, false);
    EXPECT_EQ(after.routes.openWith, false);
    EXPECT_EQ(after.routes.urlScheme, false);
}

TEST_F(DesktopIntegrationTest, aNewThunarFileStartsFromTheSystemsAndGoesOnUninstall) {
    const std::string system = "<?xml version=\"1.0\"?>\n<actions>\n<action><name>Open Terminal Here</name>"
                               "<unique-id>1-1</unique-id></action>\n</actions>\n";
    put(dir / "etc/Thunar/uca.xml", system);
    launcher.installed.insert("thunar");
    const auto configBefore = snapshot(dir.path() / "config");
    DesktopIntegration integration(locations, launcher);
    ASSERT_TRUE(integration.install(programs).problems.empty());
    const auto uca = readFile(IntegrationFiles::thunarActionsFile(locations));
    EXPECT_NE(uca.find("Open Terminal Here"), std::string::npos);
    EXPECT_NE(uca.find("<unique-id>tavrin-open-in-tavrin</unique-id>"), std::string::npos);
    integration.uninstall();
    EXPECT_EQ(snapshot(dir.path() / "config"), configBefore);
}

TEST_F(DesktopIntegrationTest, filesNotWrittenByTavrinAreLeftAlone) {
    const auto foreign = locations.dataHome / "applications/tavrin.desktop";
    put(foreign, "[Desktop Entry]\nName=Someone else's\n");
    put(IntegrationFiles::thunarActionsFile(locations), "<actions>\n<action><name>broken");
    launcher.installed.clear();  // no xdg-mime: said, not failed
    DesktopIntegration integration(locations, launcher);
    const auto report = integration.install(programs);
    ASSERT_EQ(report.problems.size(), 2u);
    EXPECT_NE(report.problems[0].find("was not written by Tavrin"), std::string::npos);
    EXPECT_NE(report.problems[1].find("no </actions>"), std::string::npos);
    bool saidXdgMime = false;
    for (const auto& note : report.notes) saidXdgMime = saidXdgMime || note.find("xdg-mime was not found") != std::string::npos;
    EXPECT_TRUE(saidXdgMime);
    EXPECT_EQ(readFile(foreign), "[Desktop Entry]\nName=Someone else's\n");
    EXPECT_EQ(readFile(IntegrationFiles::thunarActionsFile(locations)), "<actions>\n<action><name>broken");
    integration.uninstall();
    EXPECT_EQ(readFile(foreign), "[Desktop Entry]\nName=Someone else's\n");
}

TEST_F(DesktopIntegrationTest, aHandlerWithoutTheDesktopDefaultIsUnknown) {
    launcher.installed.clear();
    DesktopIntegration integration(locations, launcher);
    integration.install(programs);
    EXPECT_EQ(integration.status().routes.urlScheme, std::nullopt);
    EXPECT_EQ(FinderSetupModel::status(FinderSetupRoute::urlScheme, integration.status().routes),
              FinderSetupStatus::unknown);
}

TEST(IntegrationFiles, programPathsThatEntriesCannotCarryAreRefused) {
    EXPECT_FALSE(IntegrationFiles::programPathProblem({"/usr/bin/tavrin", "/usr/bin/tavrin-share"}));
    EXPECT_TRUE(IntegrationFiles::programPathProblem({"bin/tavrin", "/usr/bin/tavrin-share"}));
    EXPECT_TRUE(IntegrationFiles::programPathProblem({"/opt/100%/tavrin", "/usr/bin/tavrin-share"}));
    EXPECT_TRUE(IntegrationFiles::programPathProblem({"/opt/a\nb/tavrin", "/usr/bin/tavrin-share"}));
}

TEST(IntegrationFiles, openWithOffersTheVerifiedTypesOnly) {
    const auto types = IntegrationFiles::supportedMimeTypes();
    for (const char* expected : {"image/jpeg", "image/png", "application/pdf",
                                 "application/vnd.openxmlformats-officedocument.wordprocessingml.document"})
        EXPECT_NE(std::find(types.begin(), types.end(), expected), types.end()) << expected;
    for (const char* refused : {"video/quicktime", "audio/mpeg", "application/msword"})
        EXPECT_EQ(std::find(types.begin(), types.end(), refused), types.end()) << refused;
}

TEST(IntegrationFiles, mimeAppsEditsRemoveOnlyOurHandler) {
    const std::string text =
        "[Default Applications]\nx-scheme-handler/tavrin=tavrin.desktop;other.desktop;\ntext/plain=gedit.desktop;\n"
        "[Added Associations]\nx-scheme-handler/tavrin=tavrin.desktop;\n";
    EXPECT_EQ(IntegrationFiles::schemeHandler(text), "tavrin.desktop");
    EXPECT_EQ(IntegrationFiles::withoutSchemeHandler(text),
              "[Default Applications]\nx-scheme-handler/tavrin=other.desktop;\ntext/plain=gedit.desktop;\n"
              "[Added Associations]\n");
}

}  // namespace
}  // namespace tavrin
