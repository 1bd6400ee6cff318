#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "Cli.h"
#include "applications/ApplicationInventory.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::cliPath;
using tarnbridge::test::FakeHome;
using tarnbridge::test::runProcess;

extern char** environ;

namespace {

// Points XDG_DATA_DIRS at a private folder for the life of the object, so that only the fake
// system's desktop entries are read.
class DataDirs {
public:
    explicit DataDirs(const std::string& value)
    {
        if (const char* old = std::getenv("XDG_DATA_DIRS"))
            saved_ = old;
        ::setenv("XDG_DATA_DIRS", value.c_str(), 1);
    }
    ~DataDirs()
    {
        if (saved_)
            ::setenv("XDG_DATA_DIRS", saved_->c_str(), 1);
        else
            ::unsetenv("XDG_DATA_DIRS");
    }

private:
    std::optional<std::string> saved_;
};

std::vector<QJsonObject> jsonLines(const std::string& text)
{
    std::vector<QJsonObject> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        QJsonParseError error{};
        const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(line), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << line;
        EXPECT_TRUE(doc.isObject()) << line;
        out.push_back(doc.object());
    }
    return out;
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class AppCommand : public ::testing::Test {
protected:
    FakeHome fake;
    test::TempTree& tree = fake.tree();
    DataDirs dirs{tree.path("share")};

    std::string program(const std::string& relative, std::int64_t size)
    {
        const std::string path = tree.file(relative, size);
        ::chmod(path.c_str(), 0755);
        return path;
    }
    void userEntry(const std::string& file, const std::string& body)
    {
        tree.fileWithText("home/.local/share/applications/" + file, "[Desktop Entry]\nType=Application\n" + body);
    }
    std::string home(const std::string& relative) const { return fake.home() + "/" + relative; }

    void makeMachine()
    {
        program("home/Apps/Inkwell/bin/inkwell-bin", 300000);
        userEntry("org.example.Inkwell.desktop", "Name=Inkwell\nExec=" + home("Apps/Inkwell/bin/inkwell-bin") + "\n");
        program("home/Apps/Jot/jot", 20000);
        userEntry("org.example.Jot.desktop", "Name=Jot\nExec=" + home("Apps/Jot/jot") + " %F\n");
        // A program of the system's own folders: listed only with --system.
        userEntry("truth.desktop", "Name=Truth\nExec=/bin/true\n");
        tree.file("home/.config/org.example.Inkwell/settings", 4000);
        tree.file("home/.local/share/inkwell/library", 9000);
        tree.file("home/.var/app/org.gone.Paint/data", 50000);
        tree.file("home/.cache/com.vendor.gone/blob", 7000);
        tree.fileWithText("home/.local/share/applications/broken.desktop", "[Desktop Entry\n");
    }
};

} // namespace

TEST_F(AppCommand, ListsWhatTheInventoryFindsWithTiesAndLeftovers)
{
    makeMachine();
    CancellationFlag flag;
    const ApplicationReport expected = ApplicationInventory().inspect(InventoryPlaces::fromEnvironment(), flag);

    const auto listed = runProcess({cliPath(), "apps", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const auto apps = jsonLines(listed.out);
    std::vector<std::string> order, wanted;
    for (const QJsonObject& app : apps)
        order.push_back(app["bundleID"].toString().toStdString());
    for (const InstalledApplication& app : expected.apps)
        if (!app.isSystem())
            wanted.push_back(app.bundleID);
    EXPECT_EQ(order, wanted);
    // Package managers' own folders are the machine's; only the fake home is known here.
    const auto at = [&](const char* id) { return std::find(order.begin(), order.end(), id) - order.begin(); };
    ASSERT_LT(at("org.example.Inkwell"), at("org.example.Jot"));
    ASSERT_LT(at("org.example.Jot"), std::ptrdiff_t(order.size()));
    EXPECT_EQ(at("truth"), std::ptrdiff_t(order.size()));
    const QJsonObject ink = apps[std::size_t(at("org.example.Inkwell"))];
    const InstalledApplication& inkExpected = *std::find_if(
        expected.apps.begin(), expected.apps.end(),
        [](const InstalledApplication& a) { return a.bundleID == "org.example.Inkwell"; });
    EXPECT_EQ(ink["name"].toString(), "Inkwell");
    EXPECT_EQ(ink["path"].toString().toStdString(), home("Apps/Inkwell"));
    EXPECT_EQ(ink["kind"].toString(), "home");
    EXPECT_EQ(ink["system"].toBool(), false);
    EXPECT_EQ(ink["bytes"].toInteger(), inkExpected.bytes());
    const QJsonArray support = ink["support"].toArray();
    ASSERT_EQ(support.size(), 2);
    std::int64_t sum = ink["bundleBytes"].toInteger();
    std::map<std::string, std::string> ties;
    for (const auto& item : support) {
        const QJsonObject file = item.toObject();
        sum += file["allocatedSize"].toInteger();
        ties[file["path"].toString().toStdString()] =
            (file["category"].toString() + " | " + file["match"].toString()).toStdString();
        EXPECT_FALSE(file["isShared"].toBool());
    }
    EXPECT_EQ(sum, ink["bytes"].toInteger());
    EXPECT_EQ(ties, (std::map<std::string, std::string>{
                        {home(".config/org.example.Inkwell"), "Settings | Bundle identifier"},
                        {home(".local/share/inkwell"), "Application Data | App name · verify ownership"}}));
    EXPECT_TRUE(has(listed.err, "1 access note:")) << listed.err;
    EXPECT_TRUE(has(listed.err, "broken.desktop: Line 1 is not a complete group header.")) << listed.err;

    const auto all = runProcess({cliPath(), "apps", "--system", "--json"});
    ASSERT_EQ(all.exitCode, 0) << all.err;
    bool truth = false;
    for (const QJsonObject& app : jsonLines(all.out))
        if (app["bundleID"].toString() == "truth") {
            truth = true;
            EXPECT_TRUE(app["system"].toBool());
            EXPECT_EQ(app["support"].toArray().size(), 0);
        }
    EXPECT_TRUE(truth) << all.out;

    const auto leftovers = runProcess({cliPath(), "apps", "--leftovers", "--json"});
    ASSERT_EQ(leftovers.exitCode, 0) << leftovers.err;
    const auto rows = jsonLines(leftovers.out);
    ASSERT_EQ(rows.size(), expected.orphans.size());
    ASSERT_EQ(rows.size(), 2u);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i]["bundleID"].toString().toStdString(), expected.orphans[i].bundleID);
        EXPECT_EQ(rows[i]["allocatedSize"].toInteger(), expected.orphans[i].node.allocatedSize);
    }
    EXPECT_EQ(rows[0]["bundleID"].toString(), "org.gone.Paint");
    EXPECT_EQ(rows[0]["category"].toString(), "App Sandbox Data");
    EXPECT_EQ(rows[1]["path"].toString().toStdString(), home(".cache/com.vendor.gone"));
}

TEST_F(AppCommand, TheListsReadAsTheScreenWouldSayThem)
{
    makeMachine();
    const auto text = runProcess({cliPath(), "apps"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_TRUE(has(text.out, " system apps hidden; --system shows them)")) << text.out;
    EXPECT_TRUE(has(text.out, "Inkwell  ·  org.example.Inkwell")) << text.out;
    EXPECT_TRUE(has(text.out, "App name · verify ownership")) << text.out;
    EXPECT_TRUE(has(text.out, "Jot  ·  org.example.Jot")) << text.out;
    EXPECT_TRUE(has(text.out, "App bundle only")) << text.out;
    EXPECT_LT(text.out.find("Inkwell  ·"), text.out.find("Jot  ·")); // largest first
    EXPECT_FALSE(has(text.out, "Truth")) << text.out;
    EXPECT_TRUE(has(text.out, "1 access note:")) << text.out;

    const auto leftovers = runProcess({cliPath(), "apps", "--leftovers"});
    ASSERT_EQ(leftovers.exitCode, 0) << leftovers.err;
    EXPECT_TRUE(has(leftovers.out, "Leftovers from removed apps\n"
                                   "Review before cleanup — apps stored elsewhere may still use these files."))
        << leftovers.out;
    EXPECT_TRUE(has(leftovers.out, home(".var/app/org.gone.Paint/"))) << leftovers.out;
    EXPECT_TRUE(has(leftovers.out, "2 leftovers, ")) << leftovers.out;

    const auto wrong = runProcess({cliPath(), "apps", "extra"});
    EXPECT_EQ(wrong.exitCode, 2);
}

TEST(MonitorCommand, OneReadingAsJsonHasEveryFieldAndSaneValues)
{
    const auto before = std::chrono::system_clock::now();
    const auto result = runProcess({cliPath(), "monitor", "--once", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto lines = jsonLines(result.out);
    ASSERT_EQ(lines.size(), 1u) << result.out;
    const QJsonObject s = lines[0];
    for (const char* key : {"date", "cpu", "userCPU", "systemCPU", "loadAverages", "uptime", "memoryUsed",
                            "memoryTotal", "wired", "compressed", "cached", "download", "upload", "received",
                            "sent", "processes", "volumes", "issues"})
        EXPECT_TRUE(s.contains(key)) << key;
    const double now = double(std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::chrono::system_clock::now().time_since_epoch())
                                  .count()) /
                       1000.0;
    const double started =
        double(std::chrono::duration_cast<std::chrono::milliseconds>(before.time_since_epoch()).count()) / 1000.0;
    EXPECT_GE(s["date"].toDouble(), started - 1);
    EXPECT_LE(s["date"].toDouble(), now + 1);
    EXPECT_GE(s["cpu"].toDouble(), 0);
    EXPECT_LE(s["cpu"].toDouble(), 100.001);
    EXPECT_LE(s["userCPU"].toDouble() + s["systemCPU"].toDouble(), s["cpu"].toDouble() + 0.01);
    EXPECT_GT(s["memoryTotal"].toInteger(), 0);
    EXPECT_GE(s["memoryUsed"].toInteger(), 0);
    EXPECT_LE(s["memoryUsed"].toInteger(), s["memoryTotal"].toInteger());
    EXPECT_EQ(s["loadAverages"].toArray().size(), 3);
    EXPECT_GT(s["uptime"].toDouble(), 0);
    for (const char* key : {"download", "upload", "received", "sent", "wired", "compressed", "cached"})
        EXPECT_GE(s[key].toInteger(), 0) << key;
    EXPECT_TRUE(s["issues"].toArray().isEmpty()) << result.out;

    const QJsonArray processes = s["processes"].toArray();
    ASSERT_FALSE(processes.isEmpty());
    EXPECT_LE(processes.size(), 40);
    bool self = false;
    double previous = 1e9;
    for (const auto& item : processes) {
        const QJsonObject p = item.toObject();
        EXPECT_GT(p["id"].toInteger(), 0);
        EXPECT_GE(p["memory"].toInteger(), 0);
        EXPECT_GE(p["cpu"].toDouble(), 0);
        EXPECT_LE(p["cpu"].toDouble(), previous); // busiest first
        previous = p["cpu"].toDouble();
        self = self || p["name"].toString() == "tarnbridge-cli";
    }
    // The command itself was busy reading /proc: it is among the busiest or at least present
    // when the list holds every process.
    if (processes.size() < 40) {
        EXPECT_TRUE(self) << result.out;
    }
    for (const auto& item : s["volumes"].toArray()) {
        const QJsonObject v = item.toObject();
        EXPECT_FALSE(v["path"].toString().isEmpty());
        EXPECT_GT(v["total"].toInteger(), 0);
        EXPECT_GE(v["free"].toInteger(), 0);
        EXPECT_LE(v["free"].toInteger(), v["total"].toInteger());
        EXPECT_EQ(v["used"].toInteger(), v["total"].toInteger() - v["free"].toInteger());
    }
}

TEST(MonitorCommand, RefreshesUntilInterruptedAndRefusesABadInterval)
{
    CancellationFlag flag;
    std::ostringstream out, err;
    std::chrono::steady_clock::time_point cancelledAt;
    std::thread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        cancelledAt = std::chrono::steady_clock::now();
        flag.cancel();
    });
    const int code = cli::run({"monitor", "--interval", "0.2"}, out, err, flag);
    const auto stopped = std::chrono::steady_clock::now();
    stopper.join();
    EXPECT_EQ(code, 130);
    EXPECT_EQ(err.str(), "Cancelled.\n");
    // Stops promptly: at most the reading under way finishes, never a whole further interval.
    EXPECT_LT(stopped - cancelledAt, std::chrono::milliseconds(1000));
    const std::string text = out.str();
    // Not a terminal: plain blocks one after another, no escape sequences.
    EXPECT_EQ(text.find('\033'), std::string::npos);
    std::size_t blocks = 0;
    for (auto at = text.find("Top processes by CPU"); at != std::string::npos;
         at = text.find("Top processes by CPU", at + 1))
        ++blocks;
    EXPECT_GE(blocks, 2u) << text;
    for (const char* part : {"CPU ", "USER ", "SYSTEM ", "Load (1 / 5 / 15 min): ", "Memory ", "WIRED ",
                             "COMPRESSED ", "TOTAL ", "File-backed pages: ", "Network ", "This session: ",
                             "Storage\n", "PROCESS", "MEMORY"})
        EXPECT_TRUE(has(text, part)) << part;

    for (const char* bad : {"0", "0.05", "abc", "", "5000", "2s"}) {
        std::ostringstream o, e;
        CancellationFlag unused;
        EXPECT_EQ(cli::run({"monitor", "--interval", bad}, o, e, unused), 2) << bad;
        EXPECT_TRUE(has(e.str(), "--interval takes a number of seconds from 0.1 to 3600.")) << e.str();
    }
}

TEST(MonitorCommand, OnATerminalEachReadingReplacesTheLastAndCtrlCStopsIt)
{
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    const std::string slave = ::ptsname(master);
    const std::string cli = cliPath();
    char* argv[] = {const_cast<char*>(cli.c_str()), const_cast<char*>("monitor"),
                    const_cast<char*>("--interval"), const_cast<char*>("0.2"), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, slave.c_str(), O_WRONLY | O_NOCTTY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    ASSERT_EQ(::posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);

    // Read until two screens have been drawn, each starting with "home, clear".
    const std::string clear = "\033[H\033[2J";
    std::string seen;
    std::size_t screens = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (screens < 2 && std::chrono::steady_clock::now() < deadline) {
        pollfd p{master, POLLIN, 0};
        if (::poll(&p, 1, 200) <= 0)
            continue;
        char buffer[4096];
        const ssize_t n = ::read(master, buffer, sizeof buffer);
        if (n <= 0)
            break;
        seen.append(buffer, std::size_t(n));
        screens = 0;
        for (auto at = seen.find(clear); at != std::string::npos; at = seen.find(clear, at + 1))
            ++screens;
    }
    ::kill(pid, SIGINT);
    ::close(master); // a screen drawn meanwhile cannot block on a full terminal
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_EQ(screens, 2u) << seen;
    EXPECT_EQ(seen.rfind(clear, 0), 0u) << "the first screen starts clean";
    EXPECT_TRUE(has(seen, "Ctrl+C to stop.")) << seen;
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 130);
}
