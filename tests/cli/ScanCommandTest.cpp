#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>


#include "storage/ScanJson.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::cliPath;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

namespace {
bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
} // namespace

TEST(ScanCommand, PrintsTotalsAndTheLargestChildrenAndSavesAScanFile)
{
    TempTree tree;
    tree.file("videos/a.mkv", 3'000'000);
    tree.file("docs/b.txt", 20'000);
    tree.file("small", 10);
    tree.folder("nothing");
    const std::string json = tree.path("scan.json");
    const auto result = runProcess({cliPath(), "scan", tree.root(), "--logical", "--top", "2",
                                    "--json", json});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(result.err.empty()) << "no progress line unless stderr is a terminal: " << result.err;
    EXPECT_TRUE(has(result.out, "Logical size")) << result.out;
    EXPECT_TRUE(has(result.out, "Logical size    3 MB")) << result.out; // the whole tree
    EXPECT_TRUE(has(result.out, "20 kB")) << result.out;
    const auto videos = result.out.find("videos/");
    const auto docs = result.out.find("docs/");
    ASSERT_NE(videos, std::string::npos) << result.out;
    ASSERT_NE(docs, std::string::npos) << result.out;
    EXPECT_LT(videos, docs); // biggest first
    EXPECT_FALSE(has(result.out, "small")) << "--top 2 lists two";
    EXPECT_TRUE(has(result.out, "99.3%")) << result.out; // 3,000,000 of 3,020,010
    EXPECT_TRUE(has(result.out, "… and 2 more")) << result.out;

    // The saved scan shows the same summary, and holds the scan node for node.
    const auto shown = runProcess({cliPath(), "show", json, "--logical", "--top", "2"});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    const auto cut = [](const std::string& text) { return text.substr(0, text.find("Scan time")); };
    EXPECT_EQ(cut(shown.out), cut(result.out));
    const ScanResult saved = ScanJson::readFile(json);
    EXPECT_EQ(saved.root()->logicalSize, 3'020'010);
    EXPECT_EQ(saved.root()->fileCount, 3);
}

TEST(ScanCommand, FailuresAndMistakesHaveTheirOwnExitCodes)
{
    TempTree tree;
    tree.file("file", 5);
    struct Case {
        std::vector<std::string> args;
        int code;
        std::string message;
    };
    const std::vector<Case> cases{
        {{"scan", tree.path("missing")}, 1, "No such file or directory"},
        {{"scan", tree.path("file")}, 1, "Choose a folder or mounted volume to scan."},
        {{"scan", tree.root(), "--top", "many"}, 2, "--top takes a whole number"},
        {{"scan", tree.root(), "--frobnicate"}, 2, "Unknown option --frobnicate"},
        {{"scan"}, 2, "needs PATH"},
        {{"show", tree.path("file")}, 1, ""},
        {{"dance"}, 2, "unknown command \"dance\""},
    };
    for (const auto& c : cases) {
        std::vector<std::string> argv{cliPath()};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        const auto result = runProcess(argv);
        EXPECT_EQ(result.exitCode, c.code) << c.args[0] << " " << result.err;
        EXPECT_TRUE(has(result.err, c.message)) << result.err;
        EXPECT_TRUE(result.out.empty()) << result.out;
    }
    const auto help = runProcess({cliPath(), "scan", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(has(help.out, "--json FILE")) << help.out;
}

TEST(ScanCommand, InterruptStopsTheScanWithExitCode130)
{
    // The child starts with SIGINT blocked, so the signal sent at once waits until the command
    // has its handler in place, however slowly it starts: no race with start-up.
    const std::string cli = cliPath();
    char* argv[] = {const_cast<char*>(cli.c_str()), const_cast<char*>("scan"),
                    const_cast<char*>("/usr"), const_cast<char*>("--json"),
                    const_cast<char*>("/dev/null"), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    posix_spawnattr_setsigmask(&attributes, &blocked);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    ASSERT_EQ(::posix_spawn(&pid, argv[0], &actions, &attributes, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::kill(pid, SIGINT);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 130);
}
