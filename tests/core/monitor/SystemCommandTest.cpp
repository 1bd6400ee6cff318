#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "model/Errors.h"
#include "monitor/SystemCommand.h"

using namespace tarnbridge;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

std::string shell(const std::string& script, std::chrono::duration<double> limit = 10s)
{
    return SystemCommand::run("/bin/sh", {"-c", script}, limit);
}

// The message of the TarnbridgeError that `script` fails with, and how long it took.
std::pair<std::string, double> failure(const std::string& script,
                                       std::chrono::duration<double> limit = 10s)
{
    const auto start = Clock::now();
    try {
        shell(script, limit);
    } catch (const TarnbridgeError& error) {
        return {error.what(), std::chrono::duration<double>(Clock::now() - start).count()};
    }
    ADD_FAILURE() << "no failure from: " << script;
    return {};
}

} // namespace

TEST(SystemCommand, ReturnsStandardOutput)
{
    EXPECT_EQ(shell("printf 'one\\ntwo words\\n'"), "one\ntwo words\n");
    // Arguments reach the tool as they are, with no shell in between.
    EXPECT_EQ(
        SystemCommand::run("/bin/sh", {"-c", "printf '%s|' \"$@\"", "sh", "a b", "", "c'd"}, 10s),
        "a b||c'd|");
    // Output beyond a pipe's capacity on both streams is read while the tool runs.
    const std::string big =
        shell("head -c 300000 /dev/zero | tr '\\0' a; head -c 200000 /dev/zero >&2", 10s);
    EXPECT_EQ(big, std::string(300000, 'a'));
    EXPECT_EQ(shell("true"), "");
    EXPECT_EQ(shell("printf 'caf\\303\\251'"), "caf\xC3\xA9");
    EXPECT_EQ(shell("printf 'bad \\377 byte'"), ""); // not UTF-8
    // Standard input is empty, not the caller's.
    EXPECT_EQ(shell("cat; echo end"), "end\n");
}

TEST(SystemCommand, FailureCarriesStandardError)
{
    EXPECT_EQ(failure("echo partial; printf '  \\n disk not found \\n\\t' >&2; exit 3").first,
              "disk not found");
    EXPECT_EQ(failure("exit 1").first, "");
    EXPECT_EQ(failure("printf '\\377\\376' >&2; exit 2").first, "Command unavailable");
    EXPECT_EQ(failure("kill -9 $$").first, ""); // ended by a signal is a failure too

    try {
        SystemCommand::run("/nonexistent/tool", {}, 1s);
        ADD_FAILURE() << "launched a missing tool";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }
}

TEST(SystemCommand, TimeLimitEndsTheToolAndWhatItStarted)
{
    // sh waits on sleep, its child: only ending the whole group frees the pipes in time.
    const auto [said, took] = failure("echo oops >&2; sleep 5", 0.3s);
    EXPECT_EQ(said, "oops");
    EXPECT_GE(took, 0.3);
    EXPECT_LT(took, 2.0);

    const auto [silent, tookSilent] = failure("sleep 5", 0.3s);
    EXPECT_EQ(silent, "");
    EXPECT_LT(tookSilent, 2.0);

    // A tool that shrugs off SIGTERM is killed after a grace period.
    const auto [stubborn, tookStubborn] =
        failure("trap '' TERM; echo stubborn >&2; while :; do :; done", 0.2s);
    EXPECT_EQ(stubborn, "stubborn");
    EXPECT_GE(tookStubborn, 2.0);
    EXPECT_LT(tookStubborn, 5.0);

    // A quick tool is not held back by a long limit.
    const auto start = Clock::now();
    EXPECT_EQ(shell("echo fast", 30s), "fast\n");
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 2.0);
}
